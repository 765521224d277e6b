#include "MailFormat.h"

#include <algorithm>
#include <optional>
#include <string>

namespace ZOV_SPACE {
namespace {

struct Field {
    std::string_view name, value;
};

std::optional<Field> fieldIn(std::string_view line) {
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    const bool isName = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < '\x7F'; });
    if (colon == line.npos || name.empty() || !isName) return std::nullopt;
    return Field{name, line.substr(colon + 1)};
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Whether the text begins so, blanks and the case of letters aside.
bool begins(std::string_view text, std::string_view lowerCase) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return text.size() >= lowerCase.size() &&
           std::equal(lowerCase.begin(), lowerCase.end(), text.begin(), [](char a, char b) { return a == lower(b); });
}

bool isCalled(const Field& field, std::string_view lowerCase) {
    return field.name.size() == lowerCase.size() && begins(field.name, lowerCase);
}

// The next field with its continued lines, taken off the text. Without its end, if it has none.
std::string_view takeField(std::string_view& text) {
    std::size_t end = text.find('\n');
    while (end != text.npos && end + 1 < text.size() && (text[end + 1] == ' ' || text[end + 1] == '\t')) {
        end = text.find('\n', end + 1);
    }
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(std::min(field.size() + 1, text.size()));
    return field;
}

// The line in front of each mail of a mailbox.
constexpr std::string_view kMailboxMark = "From ";

}  // namespace

bool mayBeMail(std::string_view start) {
    return start.starts_with(kMailboxMark) || fieldIn(start.substr(0, start.find('\n')));
}

bool isMailWithParts(std::string_view start) {
    if (start.starts_with(kMailboxMark)) takeField(start);
    bool isMime = false, hasParts = false;
    while (!start.empty()) {
        const std::string_view line = takeField(start);
        if (line.empty() || line == "\r") break;
        const auto field = fieldIn(line);
        if (!field) return false;
        isMime = isMime || isCalled(*field, "mime-version");
        hasParts = hasParts || (isCalled(*field, "content-type") && begins(field->value, "multipart/")) ||
                   (isCalled(*field, "content-transfer-encoding") && begins(field->value, "base64"));
    }
    return isMime && hasParts;
}

}  // namespace ZOV_SPACE
