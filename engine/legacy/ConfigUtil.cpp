#include "ConfigUtil.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "Text.h"

namespace text = ZOV_SPACE::text;

namespace {

constexpr int kLineSize = 1024;  // Bytes read at a time, a NUL included.

constexpr std::string_view kCommentMarks = "#;";

// The value that the line sets `key` to; nothing when it sets something else or nothing.
std::optional<std::string_view> valueOf(std::string_view line, std::string_view key) {
    line = text::trimStart(line);
    const bool isComment = !line.empty() && kCommentMarks.find(line.front()) != std::string_view::npos;
    if (isComment || !line.starts_with(key)) return std::nullopt;
    line = text::trimStart(line.substr(key.size()));
    if (!line.starts_with('=')) return std::nullopt;
    line.remove_prefix(1);
    return text::trim(line.substr(0, line.find_first_of(kCommentMarks)));
}

}  // namespace

int ConfigUtil::QueryListValue(std::FILE* file, const char* key, char* value, int size, int keepPosition) const {
    if (keepPosition == 0) std::rewind(file);
    if (size < 0) return -1;
    const auto room = static_cast<std::size_t>(std::min(size, kMaxValue));
    char line[kLineSize];
    while (std::fgets(line, sizeof line, file)) {
        const auto found = valueOf(line, key);
        if (!found) continue;
        std::fill(value + found->copy(value, room), value + room + 1, '\0');
        return 0;
    }
    return -1;
}
