// MemberSink: takes what one member of an archive unpacks to, into the member's record.
//
// Unpacked bytes are produced where they stay: the sink lends the record's own memory to the decoder. While a member is
// unpacked and scanned it may keep kMostInMemory in memory; one that waits afterwards keeps what any buffer may.
#ifndef ENGINE_SCAN_MEMBERSINK_H
#define ENGINE_SCAN_MEMBERSINK_H

#include <cstdint>
#include <span>

#include "ScanFace.h"
#include "WorkList.h"
#include "WrappedLimitedBufferBase.h"
#include "io/BufferBaseStreams.h"
#include "utils/Crc.h"

class MemberSink : public ZOV_SPACE::BufferBaseOutputStream {
public:
    static constexpr long kMostInMemory = 16L << 20;  // Bytes.

    // All are borrowed, `content` is the record's buffer. `announced`: its size, in bytes, as the archive says it.
    MemberSink(ScanFace& face, WorkList& workList, _st_ArchEntry& record, WrappedLimitedBufferBase& content,
               long announced, bool countsCheckSum);
    // A member whose unpacking failed waits for its turn like any other, so it must not keep what only one may.
    ~MemberSink() override;

    using BufferBaseOutputStream::write;
    int write(char c) override;
    int write(const char* buf, int len) override;
    std::span<char> lendSpace() override;
    void commitSpace(long n) override;
    bool takesAtOnce(std::int64_t n) const override { return _face.mayUnpack(n); }
    void commitSummed(long n, std::uint32_t checkSum) override;

    // The member's end: nothing is written any more, and the content is the caller's to deal with.
    void complete() { _complete = true; }

    _st_ArchEntry& record() { return _record; }
    WrappedLimitedBufferBase& content() { return _content; }
    std::int64_t bytes() const { return _bytes; }  // That were written so far.
    bool countsCheckSum() const { return _countsCheckSum; }
    std::uint32_t checkSum() const { return _crc.crc(); }  // Of those, if it is counted.
    bool isCut() const { return _cut; }                    // More was to be written than is kept.

private:
    void taken(const char* bytes, long n);
    void counted(long n);

    ScanFace& _face;
    WorkList& _workList;
    _st_ArchEntry& _record;
    WrappedLimitedBufferBase& _content;
    long _announced;
    bool _countsCheckSum;
    ZOV_SPACE::Iso3309Crc _crc;
    std::int64_t _bytes = 0;
    const char* _lent = nullptr;
    bool _cut = false;
    bool _complete = false;
};

#endif  // ENGINE_SCAN_MEMBERSINK_H
