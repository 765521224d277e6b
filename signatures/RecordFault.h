// RecordFault: what is wrong with a record line. Loading drops malformed lines without a word, and a file may hold
// millions of them, so the text is only put together when somebody asks for it.
#ifndef SIGNATURES_RECORDFAULT_H
#define SIGNATURES_RECORDFAULT_H

#include <string>
#include <string_view>

struct RecordFault {
    enum class Kind : unsigned char {
        malformed,
        unannounced,  // More than the file's "#count:" says.
        noLineFeed,   // A line that the file's end cuts off.
        longLine,     // One that is cut into pieces.
        nul,          // One with a NUL in it, and more behind that.
    };

    const char* text;            // In it, "%s" stands for `part` and "%d" for `number`.
    std::string_view part = {};  // Of the line: valid as long as that is.
    int number = 0;
    Kind kind = Kind::malformed;

    std::string message() const;  // Cut as Utils::formatString() cuts.
};

#endif  // SIGNATURES_RECORDFAULT_H
