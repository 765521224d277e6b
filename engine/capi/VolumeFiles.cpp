#include "VolumeFiles.h"

#include <fcntl.h>

#include <algorithm>
#include <string_view>

#include "io/FileIo.h"
#include "io/FileViewBufferBase.h"
#include "io/RegularFile.h"

namespace {

using ZOV_SPACE::FileViewBufferBase;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Whatever the case of its letters is.
bool endsWith(std::string_view text, std::string_view ending) {
    const auto isSame = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; };
    if (text.size() < ending.size()) return false;
    text.remove_prefix(text.size() - ending.size());
    return std::equal(text.begin(), text.end(), ending.begin(), isSame);
}

std::string digitsOf(int number, std::size_t width) {
    const std::string digits = std::to_string(number);
    return std::string(width > digits.size() ? width - digits.size() : 0, '0') + digits;
}

// Where a volume should lie: name.part2.rar behind name.part1.rar; name.r00 to name.r99, then name.s00, behind
// name.rar.
std::optional<std::string> pathOf(const std::string& first, int number) {
    constexpr std::string_view kEnding = ".rar", kPart = ".part";
    constexpr int kOfLetter = 100, kLetters = 'z' - 'r' + 1;
    if (!endsWith(first, kEnding)) return std::nullopt;
    const std::size_t stem = first.size() - kEnding.size();
    std::size_t digits = stem;
    while (digits > 0 && isDigit(first[digits - 1])) --digits;
    const std::size_t width = stem - digits;
    if (width > 0 && endsWith(std::string_view(first).substr(0, digits), kPart)) {
        if (first.substr(digits, width) != digitsOf(1, width)) return std::nullopt;
        return first.substr(0, digits) + digitsOf(number, width) + first.substr(stem);
    }
    const int index = number - 2;
    if (index < 0 || index >= kOfLetter * kLetters) return std::nullopt;
    const auto letter = static_cast<char>(first[stem + 1] + index / kOfLetter);
    return first.substr(0, stem + 1) + letter + digitsOf(index % kOfLetter, 2);
}

// Nothing for what is no volume, or too large for one.
std::optional<std::uint64_t> sizeOf(const ZOV_SPACE::OwnFd& file) {
    const auto size = file ? ZOV_SPACE::regularFileSize(file.get()) : std::nullopt;
    if (!size || *size > static_cast<std::uint64_t>(FileViewBufferBase::kMaxSize)) return std::nullopt;
    return size;
}

}  // namespace

ZOV_SPACE::OwnFd VolumeFiles::open(int number) {
    const auto path = pathOf(_first, number);
    if (!path) return {};
    auto file = ZOV_SPACE::openFile(path->c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    const auto size = sizeOf(file);
    if (!size) return {};
    if (number > _latest) _opened += *size;
    _latest = std::max(_latest, number);
    if (_most != 0 && _opened > _most) return {};
    return file;
}

std::unique_ptr<ZOV_SPACE::BufferBase> VolumeFiles::content(const ZOV_SPACE::OwnFd& file) {
    const auto size = sizeOf(file);
    if (!size) return nullptr;
    auto bytes = std::make_unique<FileViewBufferBase>(file.get(), static_cast<long>(*size));
    if (!bytes->isValid()) return nullptr;
    return bytes;
}
