#include "RecordNames.h"

#include <algorithm>
#include <utility>

#include "Ascii.h"
#include "Escape.h"
#include "Text.h"
#include "VoleLibrary.h"

namespace {

// A record has one line with all its fields.
constexpr std::size_t kMaxName = 512;
constexpr char kReplacement = '_';

bool isControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }
bool isBlank(char c) { return c == ' '; }

// Not in the middle of a character.
void cut(std::string& name) {
    if (name.size() <= kMaxName) return;
    std::size_t end = kMaxName;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
    name.resize(end);
}

// Escaped as it would be printed: a record may be printed anywhere.
std::string cleaned(std::string name) {
    cut(name);
    std::replace_if(
        name.begin(), name.end(), [](char c) { return isControl(c) || c == ':' || c == '\\'; }, kReplacement);
    std::string text;
    appendEscaped(text, name);
    cut(text);
    if (text.empty()) return std::string(1, kReplacement);
    for (char* const edge : {&text.front(), &text.back()}) {
        if (isBlank(*edge)) *edge = kReplacement;
    }
    return text;
}

std::string joined(const MemberPath& member) {
    std::string path;
    for (const std::string& name : member) path += (path.empty() ? "" : "/") + name.substr(0, kMaxName);
    return path;
}

std::string baseName(const std::string& file) {
    const std::string_view path = ZOV_SPACE::text::trimEnd(file, "/");
    return std::string(path.substr(path.rfind('/') + 1));
}

}  // namespace

RecordNames::RecordNames(std::string text) : _text(std::move(text)) {
    const bool isUnfit = std::any_of(_text.begin(), _text.end(), [](char c) { return isControl(c) || c == ':'; });
    if (isUnfit) throw LoadError("a record's name has no \":\" and no control characters in it");
    if (_text.starts_with(' ') || _text.ends_with(' ')) throw LoadError("a record's name has no blanks at its ends");
    if (_text.size() > kMaxName) throw LoadError("the name is longer than " + std::to_string(kMaxName) + " bytes");
    for (std::size_t at = _text.find('%'); at != std::string::npos; at = _text.find('%', at + 2)) {
        const char letter = at + 1 < _text.size() ? _text[at + 1] : '\0';
        if (!ZOV_SPACE::text::isOneOf("fmn%", letter)) throw LoadError("in a name, % is followed by f, m, n or %");
    }
}

std::string RecordNames::nameOf(const std::string& file, const MemberPath& member, std::uint64_t number) const {
    const std::string base = baseName(file), path = member.empty() ? base : joined(member);
    if (_text.empty()) return cleaned(member.empty() ? base : base + '/' + path);
    std::string name;
    for (std::size_t i = 0; i < _text.size(); ++i) {
        const bool isLetter = _text[i] == '%';
        const char letter = isLetter ? _text[++i] : _text[i];
        if (!isLetter || letter == '%') {
            name += letter;
        } else if (letter == 'n') {
            name += std::to_string(number);
        } else {
            name += cleaned(letter == 'f' ? base : path);
        }
    }
    cut(name);
    return name;
}
