// PatternLineReader: the lines of a pattern file and what kind each is; shared by the loader and by tools that check
// pattern files. Reads in large blocks; one thread.
//
// A line is at most 1023 bytes with its newline; a longer one comes in pieces of 1023 bytes, each a line of its own.
// Bytes behind a NUL do not exist. A rest without a newline at the end of the file is no line. Empty lines in a row
// come as one, with the number of the last: one by one they would cost many times as much as any other bytes.
#ifndef SIGNATURES_PATTERNLINEREADER_H
#define SIGNATURES_PATTERNLINEREADER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "io/OwnFd.h"

struct PatternLine {
    enum class Kind {
        data,
        comment,
        count,  // "#count:" at the very start of the line, with its number in `count`
    };

    Kind kind;
    std::string_view text;  // Without its line end; valid until the next line is read.
    int count;              // 0 unless kind is count. Saturates at the limits of int.
    std::uint64_t number;   // From 1. Pieces of a longer line share its number.
    bool cut;               // The newline that should end it comes later, if at all.
    bool hasNul;            // There may be more behind the text.
};

class SecondThread;

class PatternLineReader {
public:
    static constexpr std::size_t kMaxLine = 1023;  // Bytes of one line, its newline included.

    static constexpr std::size_t kSlack = 16;

    // The second thread, if there is one, reads ahead when it has nothing better to do.
    explicit PatternLineReader(ZOV_SPACE::OwnFd file, SecondThread* second = nullptr);
    PatternLineReader(const PatternLineReader&) = delete;
    PatternLineReader& operator=(const PatternLineReader&) = delete;
    ~PatternLineReader();

    // Gets the next line; false at the end of the file. Throws IOException when reading fails.
    bool next(PatternLine& line);

    // The bytes that were read from the file and are not taken yet; kSlack more behind them are readable.
    std::string_view unread() const { return {_buffer + _begin, _end - _begin}; }
    // Takes the next line, which the caller has found to be a data line without a NUL that ends within unread(), of so
    // many bytes with its line feed.
    PatternLine take(std::size_t length) {
        const std::string_view text(_buffer + _begin, length - 1);
        _begin += length;
        return {PatternLine::Kind::data, text, 0, _lineNumber++, false, false};
    }

    // Once there are no more lines: gets the rest behind the last one; false when there is none.
    bool rest(PatternLine& line) const;

    // In the lines that were returned or taken.
    std::uint64_t lineFeeds() const { return _lineNumber - 1; }

    // From now on, calls `action` before the texts of the lines that were returned so far go.
    void beforeRefill(std::function<void()> action) { _beforeRefill = std::move(action); }

    // Bytes of the file behind the line last returned, as far as its size is known.
    std::uint64_t bytesLeft() const;

private:
    // What one reading of the file gave, with room in front of it for the start of a line.
    struct Block {
        std::unique_ptr<char[]> buffer;
        ssize_t got = 0;
        int error = 0;  // The reason when `got` is negative.
    };

    bool refill();
    void readInto(Block& block) const;
    void readAhead();
    bool takeEmptyLines(PatternLine& line);

    ZOV_SPACE::OwnFd _file;
    SecondThread* _second;
    Block _block;
    Block _ahead;  // Of the second thread, while it reads.
    char* _buffer = nullptr;
    std::size_t _begin = 0;  // The unread bytes in _buffer, which is the block's.
    std::size_t _end = 0;
    std::uint64_t _size;            // Of the file.
    std::uint64_t _read = 0;        // Bytes of it that have been read so far.
    std::uint64_t _lineNumber = 1;  // Of the next line.
    std::function<void()> _beforeRefill;
};

#endif  // SIGNATURES_PATTERNLINEREADER_H
