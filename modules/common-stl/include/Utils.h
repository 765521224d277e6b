// Utils.h: strings and small parsers. Letter case and character classes are ASCII's, whatever the host's locale.
// Everything is safe from any thread.
#ifndef COMMON_STL_UTILS_H
#define COMMON_STL_UTILS_H

#include <cstddef>
#include <string>
#include <vector>

namespace ZOV_SPACE {

class StringHelper {
public:
    // Two nulls are equal, a null and a text are not.
    static bool equals(const char* a, const char* b);
    static bool equalsIgnoreCase(const char* a, const char* b);
    // False when either is null.
    static bool startsWith(const char* text, const char* prefix);
    static bool startsWithIgnoreCase(const char* text, const char* prefix);
    static bool endsWith(const char* text, const char* suffix);
    static bool endsWithIgnoreCase(const char* text, const char* suffix);

    // Removes from both ends what occurs in `chars`; null removes nothing.
    static void trim(std::string& text, const char* chars);

    static std::string ntoa(int value);
    static std::string ltoa(long value);
    static bool atob(const char* text);   // True only for "true", in any letter case.
    static const char* btoa(bool value);  // "true" or "false".

    static void replaceChar(std::string& text, char from, char to);

    // Replaces every `from` by `to`, searching again from the start after each replacement, so that what a
    // replacement brings together is replaced as well ("aab" with "ab" -> "b" gives "b"). Nothing happens when either
    // is null or `from` is empty. What could go on for ever is bounded: a replacement is not looked at again when `to`
    // contains `from`, nor, when `to` is longer than `from`, after the first kMaxGrowingReplacements.
    static void replace(std::string& text, const char* from, const char* to);
    static constexpr std::size_t kMaxGrowingReplacements = 65536;

    static void toupper(std::string& text);
    static void tolower(std::string& text);
};

class Utils {
public:
    // Field `index`, counting from 0, of a line whose fields are separated by runs of characters of `separators`, as a
    // new zero-terminated copy that the caller releases with delete[]. Null when the field is missing or empty; see
    // text::Fields.
    static char* strToK(const char* line, int index, const char* separators);

    // The number in the first `length` bytes, in base 8, 16 or, for any other `base`, 10. Zero bytes and blanks before
    // it are skipped; it ends before the first byte that is not a hexadecimal digit. Wraps at 32 bits. 0 when there is
    // no digit. Throws Exception "invalid oct number", "invalid hex number" or "invalid dec number".
    //
    // Kept as is: in base 16 a letter counts as its distance from 'A', so that "A" is 0, "B" is 1 and "a" is 32.
    // The values are part of the framework's contract.
    static int parseInt(const char* text, int length, int base);

    // Whether every byte is a decimal digit or one of `allowed`, which may be null. False for a null or empty text.
    static bool isdigits(const char* text, const char* allowed);

    static bool compareBytes(const void* a, const void* b, std::size_t count);
    // Whether the pattern occurs in the buffer. An empty pattern does.
    static bool memstr(const void* buffer, std::size_t length, const void* pattern, std::size_t patternLength);

    static char CHAR_TO_HEX(int value);            // The upper-case digit of the low four bits.
    static char HEX_TO_CHAR(char high, char low);  // What is not a hexadecimal digit counts as 0.

    // Cut after 4095 bytes.
    static std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

    static std::string getLocalDate();  // "2024-01-31"
    static std::string getLocalTime();  // "23:59:59"

    using TokenCallback = void (*)(std::string& token, void* argument);
    // Replaces the contents of `list` by the runs of characters outside `separators`. Each token goes to the callback,
    // which may change it, before it is appended, provided that both the callback and its argument are given.
    static void stringTokenizer(const char* text, std::vector<std::string>& list, const char* separators,
                                TokenCallback callback = nullptr, void* argument = nullptr);

    // Removes from both ends what occurs in `chars`, by default blanks, tabs and line ends.
    static void trimString(std::string& text, const char* chars = nullptr);
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_UTILS_H
