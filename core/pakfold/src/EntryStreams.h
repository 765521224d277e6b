// EntryStreams.h: the small streams between an archive and those who read or take one entry's data.
//
// The streams they work on are borrowed. Each is used by one thread at a time.
#ifndef PAKFOLD_ENTRYSTREAMS_H
#define PAKFOLD_ENTRYSTREAMS_H

#include <cstdint>
#include <span>

#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

// The next `total` bytes of a stream, and no more: whoever reads them cannot leave the walk at an unknown place.
class BoundedInputStream : public InputStream {
public:
    // A negative total counts as 0.
    BoundedInputStream(InputStream* in, std::int64_t total) : _in(in), _left(total > 0 ? total : 0) {}
    ~BoundedInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    int read(char* buf, int len) override;
    long skip(long n) override;

    std::int64_t left() const { return _left; }
    // Moves behind the last of the bytes. False when the stream ends before.
    bool skipRest();

private:
    InputStream* _in;
    std::int64_t _left;
};

// Writes what is read from a stream to a second one as well, which may be null.
class PumpInputStream : public InputStream {
public:
    PumpInputStream(InputStream* in, OutputStream* copy) : _in(in), _copy(copy) {}
    ~PumpInputStream() override;

    int available() override;
    void close() override;
    int read() override;
    // Kept as is: the copy gets as many bytes as were asked for; those that were not read are zero.
    int read(char* buf, int len) override;
    long skip(long n) override;  // Copies, too. Returns n.
    void mark(int readLimit) override;
    void reset() override;  // Like mark(): IOException "Unimplemented".

private:
    InputStream* _in;
    OutputStream* _copy;
};

// Drops what it is given, at the expense of the scan's budget: ArchivingException "Out of budget" when that is used up.
class NullOutputStream : public OutputStream {
public:
    NullOutputStream() = default;
    ~NullOutputStream() override;

    using OutputStream::write;
    void close() override;
    int write(char c) override;
    int write(const char* buf, int len) override;
    bool discards() const override { return true; }
};

// Hands bytes on, which count against the scan's budget: ArchivingException "Out of budget" when that is used up.
class TakenOutputStream : public OutputStream {
public:
    explicit TakenOutputStream(OutputStream* out) : _out(out) {}
    ~TakenOutputStream() override;

    using OutputStream::write;
    void close() override;
    int write(char c) override;
    int write(const char* buf, int len) override;
    std::span<char> lendSpace() override;
    void commitSpace(long n) override;
    bool discards() const override;
    bool takesAtOnce(std::int64_t n) const override;
    void commitSummed(long n, std::uint32_t checkSum) override;

    std::int64_t taken() const { return _taken; }  // Bytes so far.

private:
    void charge(std::int64_t n);

    OutputStream* _out;
    std::int64_t _taken = 0;
};

// Hands bytes on until the stream behind it throws UnarchiveRatioExceed or a processor says stop, and drops the rest
// like NullOutputStream. For entries that must be decoded to their end because that shows only then, or because later
// ones build on them.
class CutOffOutputStream : public OutputStream {
public:
    // The processor, which may be null, is asked before each piece.
    explicit CutOffOutputStream(OutputStream* out, DecompressProcessor* processor = nullptr)
        : _out(out), _processor(processor) {}
    ~CutOffOutputStream() override;

    using OutputStream::write;
    void close() override;
    int write(char c) override;
    int write(const char* buf, int len) override;
    bool discards() const override { return !_out; }

private:
    OutputStream* _out;  // Null once it is full.
    DecompressProcessor* _processor;
    NullOutputStream _rest;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_ENTRYSTREAMS_H
