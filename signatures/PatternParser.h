// PatternParser: hexadecimal text to bytes, for the line parsers of both signature kinds. Stateless.
#ifndef SIGNATURES_PATTERNPARSER_H
#define SIGNATURES_PATTERNPARSER_H

#include <memory>
#include <optional>
#include <string_view>

#include "RecordFault.h"

class PatternParser {
public:
    // Converts exactly `length` hexadecimal characters into length / 2 bytes at `out`. Throws Exception when `length`
    // is odd, when the text has another length, or at the first pair that is not hexadecimal; the bytes before that
    // pair are written all the same.
    static void hex2str(const char* hex, unsigned char* out, unsigned int length);

    // Converts the whole text. Returns strlen / 2 + 1 bytes, the last of them 0. Throws Exception for an odd length, a
    // character that is not hexadecimal, or lack of memory.
    static std::unique_ptr<unsigned char[]> hex2str(const char* hex);

    // The value of one hexadecimal digit of either case. Throws Exception for any other character.
    static short hex2int(char c);

    // What the first form throws, as a value: nothing when the conversion went well. Pattern files may hold any number
    // of malformed lines, and an exception for each would make such a file expensive to load.
    static std::optional<RecordFault> tryHex2str(std::string_view hex, unsigned char* out, unsigned int length);
};

#endif  // SIGNATURES_PATTERNPARSER_H
