// pax(1), and the keys of GNU tar for sparse files in its formats 0.0, 0.1 and 1.0.
#include "tar/TarExtensions.h"

#include <charconv>
#include <system_error>

namespace ZOV_SPACE {

std::optional<std::int64_t> decimal(std::string_view digits) {
    std::int64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [behind, error] = std::from_chars(digits.data(), end, value);
    const bool isNumber = error == std::errc() && behind == end && value >= 0;
    return isNumber ? std::optional(value) : std::nullopt;
}

bool TarExtensions::readPax(std::string_view lines) {
    while (!lines.empty() && lines[0] != '\0') {
        const std::size_t blank = lines.find(' ');
        if (blank == lines.npos) return false;
        const auto length = decimal(lines.substr(0, blank));
        const bool isLine = length && *length > static_cast<std::int64_t>(blank) + 1 &&
                            *length <= static_cast<std::int64_t>(lines.size());
        if (!isLine) return false;
        const std::string_view line = lines.substr(0, static_cast<std::size_t>(*length));
        const std::string_view text = line.substr(blank + 1, line.size() - blank - 2);  // Without the line feed.
        const std::size_t equals = text.find('=');
        if (equals == text.npos) return false;
        take(text.substr(0, equals), text.substr(equals + 1));
        lines.remove_prefix(line.size());
    }
    return true;
}

void TarExtensions::take(std::string_view key, std::string_view value) {
    if (key == "path" || key == "GNU.sparse.name") {
        name = value;
    } else if (key == "size") {
        size = decimal(value);
    } else if (key == "GNU.sparse.size" || key == "GNU.sparse.realsize") {
        sparseSize = decimal(value);
    } else if (key == "GNU.sparse.major") {
        hasMapInData = value == "1";
    } else if (key == "GNU.sparse.offset" || key == "GNU.sparse.numbytes") {
        addToMap(decimal(value), key == "GNU.sparse.offset");
    } else if (key == "GNU.sparse.map") {
        sparseMap = TarSparseMap::parse(value, ',');
    }
}

void TarExtensions::addToMap(std::optional<std::int64_t> number, bool isOffset) {
    if (!sparseMap) sparseMap.emplace();
    if (isOffset) {
        sparseMap->add(number.value_or(-1), 0);
    } else {
        sparseMap->setLastSize(number.value_or(-1));
    }
}

}  // namespace ZOV_SPACE
