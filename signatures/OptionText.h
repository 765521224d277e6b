// OptionText.h: lines of an options file ("voleeng.ini"), taken apart: for whoever reads it, and for tools that check
// it. Lines are read in pieces of at most kMaxOptionLine bytes. Blanks around key and value do not count; a line that
// begins with '#' or ';' is a comment, and so is the rest of a value from either on. There are no sections.
#ifndef SIGNATURES_OPTIONTEXT_H
#define SIGNATURES_OPTIONTEXT_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "Text.h"

namespace options {

constexpr const char* kFileName = "voleeng.ini";  // In a pattern directory.
constexpr std::size_t kMaxLine = 1023;            // Bytes, a line feed included.

constexpr const char* kMaxEntries = "MaxUnarEntries";
constexpr const char* kMaxRatio = "MaxUnarRatio";
constexpr const char* kMaxLevelEntries = "MaxUnarLevelEntries";
constexpr const char* kMaxDepth = "MaxUnarDepth";
constexpr const char* kMaxSize = "MaxUnarSize";
constexpr const char* kKeys[] = {kMaxEntries, kMaxRatio, kMaxLevelEntries, kMaxDepth, kMaxSize};

constexpr std::string_view kCommentMarks = "#;";

constexpr bool isComment(std::string_view line) {
    line = ZOV_SPACE::text::trimStart(line);
    return !line.empty() && kCommentMarks.find(line.front()) != std::string_view::npos;
}

// The value that the line sets `key` to (case-sensitive); nothing when it sets something else or nothing.
constexpr std::optional<std::string_view> valueOf(std::string_view line, std::string_view key) {
    line = ZOV_SPACE::text::trimStart(line);
    if (isComment(line) || !line.starts_with(key)) return std::nullopt;
    line = ZOV_SPACE::text::trimStart(line.substr(key.size()));
    if (!line.starts_with('=')) return std::nullopt;
    line.remove_prefix(1);
    return ZOV_SPACE::text::trim(line.substr(0, line.find_first_of(kCommentMarks)));
}

}  // namespace options

#endif  // SIGNATURES_OPTIONTEXT_H
