// ConfigUtil: looks one key up in an open "key = value" text file. Stateless.
//
// Lines are read in pieces of at most 1023 bytes. Blanks around key and value do not count; a line that begins with
// '#' or ';' is a comment, and so is the rest of a value from either on. There are no sections.
#ifndef ENGINE_LEGACY_CONFIGUTIL_H
#define ENGINE_LEGACY_CONFIGUTIL_H

#include <cstdio>

class ConfigUtil {
public:
    static constexpr int kMaxValue = 1024;  // Bytes of a value, without its NUL.

    // Copies the value of the first line that sets `key` (case-sensitive) into `value`, at most `size` bytes, and fills
    // what is left of size + 1 bytes with zeros; `size` counts as at most kMaxValue. Searches from the start of the
    // file, or, when `keepPosition` is not 0, from where the file stands. 0; -1, with `value` untouched, when `size` is
    // negative or no line sets the key.
    // REQUIRES: `value` has room for size + 1 bytes.
    int QueryListValue(std::FILE* file, const char* key, char* value, int size, int keepPosition) const;
};

#endif  // ENGINE_LEGACY_CONFIGUTIL_H
