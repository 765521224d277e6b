#include "ConfigUtil.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "VoleUtil.h"

namespace {

constexpr int kLineSize = 1024;  // Bytes read at a time, a NUL included.

// The value that the line sets `key` to, cut and trimmed in place; null when it sets something else or nothing.
char* valueOf(char* line, const char* key) {
    const std::size_t keyLength = std::strlen(key);
    char* const start = VoleUtil::FirstChar(line);
    if (std::strchr("#;\n", *start)) return nullptr;  // A comment, or, with the NUL, a blank line.
    if (std::strncmp(start, key, keyLength) != 0) return nullptr;
    char* const equals = VoleUtil::FirstChar(start + keyLength);
    if (*equals != '=') return nullptr;
    char* const value = VoleUtil::FirstChar(equals + 1);
    value[std::strcspn(value, "#;")] = '\0';
    return VoleUtil::rtrim(value);
}

}  // namespace

int ConfigUtil::QueryListValue(std::FILE* file, const char* key, char* value, int size, int keepPosition) const {
    if (keepPosition == 0) std::rewind(file);
    if (size < 0) return -1;
    const auto room = static_cast<std::size_t>(std::min(size, kMaxValue));
    char line[kLineSize];
    while (std::fgets(line, sizeof line, file)) {
        const char* const found = valueOf(line, key);
        if (!found) continue;
        const std::string_view text = std::string_view(found).substr(0, room);
        std::fill(std::copy(text.begin(), text.end(), value), value + room + 1, '\0');
        return 0;
    }
    return -1;
}
