// All listed names that are prefixes of a text are found from the last one that is not behind it in byte order: it is
// the longest of them, or has the longest among its own prefixes. When a name is marked, so are its prefixes.
#include "NameMarks.h"

#include <algorithm>

#include "Ascii.h"

namespace {

void fold(std::string_view name, std::string& folded) {
    folded = name;
    for (char& c : folded) c = ZOV_SPACE::ascii::toLower(c);
}

unsigned foldedByte(char c) { return static_cast<unsigned char>(ZOV_SPACE::ascii::toLower(c)); }

}  // namespace

NameMarks::NameMarks(const std::vector<std::string>& names, Compare compare) : _compare(compare) {
    for (const std::string& name : names) fold(name, _names.emplace_back().folded);
    const auto byText = [](const Name& a, const Name& b) { return a.folded < b.folded; };
    std::sort(_names.begin(), _names.end(), byText);
    const auto isSame = [](const Name& a, const Name& b) { return a.folded == b.folded; };
    _names.erase(std::unique(_names.begin(), _names.end(), isSame), _names.end());
    for (const Name& name : _names) {
        if (name.folded.size() < 2) _hasShort = true;
        _keys.set(keyOf(name.folded));
    }
    if (compare == Compare::prefix) linkPrefixes();
}

// A name's prefixes stand before it, the longest one last, and between that and the name only what begins with it, too.
void NameMarks::linkPrefixes() {
    for (std::size_t i = 1; i < _names.size(); ++i) {
        std::size_t other = i - 1;
        while (other != SIZE_MAX && !_names[i].folded.starts_with(_names[other].folded)) other = _names[other].shorter;
        _names[i].shorter = other;
    }
}

// Two bytes that tell many names apart: of prefixes their first ones, of whole names the last ones.
std::uint16_t NameMarks::keyOf(std::string_view name) const {
    if (name.size() < 2) return 0;
    const std::size_t at = _compare == Compare::prefix ? 0 : name.size() - 2;
    return static_cast<std::uint16_t>(foldedByte(name[at]) << 8 | foldedByte(name[at + 1]));
}

// SIZE_MAX: all are behind it.
std::size_t NameMarks::lastUpTo(std::string_view folded) const {
    const auto behind = std::upper_bound(_names.begin(), _names.end(), folded,
                                         [](std::string_view text, const Name& name) { return text < name.folded; });
    return static_cast<std::size_t>(behind - _names.begin()) - 1;
}

std::size_t NameMarks::numberOf(std::string_view listed) const {
    std::string folded;
    fold(listed, folded);
    return lastUpTo(folded);
}

std::optional<std::uint32_t> NameMarks::noteLine(std::string_view listed, std::uint32_t line) {
    std::uint32_t& first = _names[numberOf(listed)].firstLine;
    if (first != 0) return first;
    first = line;
    return std::nullopt;
}

void NameMarks::mark(std::string_view name) {
    if (!_hasShort && !_keys[keyOf(name)]) return;
    fold(name, _folded);
    std::size_t found = lastUpTo(_folded);
    if (_compare == Compare::whole) {
        if (found != SIZE_MAX && _names[found].folded == _folded) _names[found].isMarked = true;
        return;
    }
    while (found != SIZE_MAX && !_folded.starts_with(_names[found].folded)) found = _names[found].shorter;
    for (; found != SIZE_MAX && !_names[found].isMarked; found = _names[found].shorter) _names[found].isMarked = true;
}
