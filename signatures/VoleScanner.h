// VoleScanner.h: the scanners, which look for the signatures of one list in one stream. A scanner borrows its list and
// belongs to one thread; any number of scanners share a list.
#ifndef SIGNATURES_VOLESCANNER_H
#define SIGNATURES_VOLESCANNER_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "BmList.h"
#include "CheckSumList.h"
#include "Md5.h"
#include "SignatureMatch.h"
#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "utils/Crc.h"

// Md5Scanner: finds the MD5 signature of a whole stream.
class Md5Scanner {
public:
    explicit Md5Scanner(const BmList& list) : _list(list) {}

    // True, and the name set, when the stream's digest is a signature. `size` is the stream's size as the caller knows
    // it: when no signature has it the stream is not read; otherwise the whole stream is hashed, whatever its real
    // size. A null buffer, a descriptor of -1 and a size of 0 give false. Throws Exception when reading fails.
    bool scan(ZOV_SPACE::IOBuffer* buf, unsigned int size, std::string& virusName);
    bool scan(int fd, unsigned int size, std::string& virusName);
    // The same for all signatures with that digest, newest first, until the visitor has enough: then true.
    // All forms tell the thread's ScanBudget of what was hashed, piece by piece, so that its watch may stop them.
    bool scan(ZOV_SPACE::IOBuffer* buf, unsigned int size, MatchVisitor& visitor);
    // The same for a stream whose digest is known.
    bool scan(const Md5Digest& digest, unsigned int size, MatchVisitor& visitor);

    bool verifyFileSize(unsigned int size) const { return _list.verifyFileSize(size); }
    const char* virusFoundMD5(const unsigned char* digest) const { return _list.virusFoundMD5(digest); }

private:
    // `read` is a callable that fills a buffer of the given size: bytes read, less only at the end, negative on
    // failure.
    template <class Read>
    void feed(Read read);
    void hash(const char* piece, std::size_t length);
    bool lookUp(MatchVisitor& visitor);
    bool lookUp(const Md5Digest& digest, MatchVisitor& visitor);

    const BmList& _list;
    Md5 _md5;
};

// ChkScanner: finds the newest checksum signature that matches a stream.
class ChkScanner {
public:
    explicit ChkScanner(const CheckSumList& list) : _list(list) {}

    // True, and the name set, when a record of the target matches. A target of 0 is replaced by what getTargetCode()
    // finds. `size` is the stream's size as the caller knows it; records that reach beyond it do not match. A
    // stream that cannot be read does not match; no framework exception leaves but ScanStoppedException.
    bool scan(ZOV_SPACE::IOBuffer* buf, unsigned int size, std::string& virusName, TARGET_TYPE target);
    bool scan(int fd, unsigned int size, std::string& virusName, TARGET_TYPE target);
    // The same for all records that match, newest first, until the visitor has enough: then true.
    bool scan(ZOV_SPACE::IOBuffer* buf, unsigned int size, MatchVisitor& visitor, TARGET_TYPE target);
    // Whether something within the size that the latest scan asked for could not be read, so that "no match" says
    // nothing.
    bool failed() const { return _failed; }

    // kTargetPe for a PE executable, else kTargetAny.
    static TARGET_TYPE getTargetCode(ZOV_SPACE::IOBuffer* buf);

    // Positions in the stream; false when they do not lie in it, or when the record is relative to PE structures that
    // cannot be read. The PE headers are read once per scan.
    bool getOffset(ZOV_SPACE::IOBuffer* buf, const CheckSumFields* pattern, unsigned int* off1, unsigned int* off2);
    bool getOffset(ZOV_SPACE::IOBuffer* buf, unsigned short target, unsigned char type, unsigned char param,
                   short offset, unsigned int* out);

    // Tries the target's records, newest first.
    bool verifyCheckSum(ZOV_SPACE::IOBuffer* buf, TARGET_TYPE target, std::string& virusName);
    bool verifyCheckSum(ZOV_SPACE::IOBuffer* buf, TARGET_TYPE target, MatchVisitor& visitor);

private:
    enum class Verdict { mismatch, match, shortRead };

    struct MemoEntry {
        std::uint32_t offset = 0;
        std::uint32_t length = UINT32_MAX;  // No range is as long as this: the entry is free.
        std::uint32_t crc = 0;
    };

    void begin(unsigned int size);
    TARGET_TYPE targetFor(ZOV_SPACE::IOBuffer* buf, TARGET_TYPE asked);
    const PeInfo2* peInfo(ZOV_SPACE::IOBuffer* buf);
    std::optional<std::int64_t> basePosition(ZOV_SPACE::IOBuffer* buf, std::uint8_t type, std::uint8_t parameter);
    std::span<const char> bytesAt(ZOV_SPACE::IOBuffer* buf, std::uint32_t offset, std::size_t length);
    std::optional<std::uint32_t> crcOf(ZOV_SPACE::IOBuffer* buf, std::uint32_t offset, std::uint32_t length);
    Verdict compare(ZOV_SPACE::IOBuffer* buf, const CheckSumFields& pattern, unsigned int& off1);
    Verdict tryRecord(ZOV_SPACE::IOBuffer* buf, const CheckSumRecord& record, MatchVisitor& visitor);
    bool tryAll(ZOV_SPACE::IOBuffer* buf, TARGET_TYPE target, MatchVisitor& visitor);
    bool tryCandidates(ZOV_SPACE::IOBuffer* buf, TARGET_TYPE target, const ChkIndex& index, MatchVisitor& visitor);
    std::vector<std::uint32_t> findCandidates(ZOV_SPACE::IOBuffer* buf, const ChkIndex& index);

    const CheckSumList& _list;
    bool _failed = false;
    std::vector<char> _buffer;  // Bytes of streams that keep none contiguously in memory.
    ZOV_SPACE::Iso3309Crc _crc;
    unsigned int _size = 0;
    enum class PeState { unknown, readable, unreadable } _peState = PeState::unknown;
    PeInfo2 _peInfo;
    std::array<MemoEntry, 64> _crcMemo;  // By a hash of offset and length.
};

#endif  // SIGNATURES_VOLESCANNER_H
