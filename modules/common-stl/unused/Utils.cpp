// All of these classes but Utils::formatString(), which is in ../Utils.cpp.
#include "Utils.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "Ascii.h"
#include "Raise.h"
#include "Text.h"

namespace ZOV_SPACE {
namespace {

constexpr ThrowUnit kUnit{"Utils"};

void trimInPlace(std::string& text, std::string_view set) { text = std::string(text::trim(text, set)); }

unsigned int digitOrRaise(char c, int base) {
    switch (base) {
        case 8:
            if (c < '0' || c > '7') kUnit.raise<Exception>("invalid oct number");
            break;
        case 16:
            if (!ascii::isXDigit(c)) kUnit.raise<Exception>("invalid hex number");
            if (!ascii::isDigit(c)) return static_cast<unsigned int>(c - 'A');
            break;
        default:
            if (!ascii::isDigit(c)) kUnit.raise<Exception>("invalid dec number");
    }
    return static_cast<unsigned int>(c - '0');
}

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return local;
}

}  // namespace

bool StringHelper::equals(const char* a, const char* b) { return a && b ? std::strcmp(a, b) == 0 : a == b; }

bool StringHelper::equalsIgnoreCase(const char* a, const char* b) {
    return a && b ? text::sameIgnoringCase(a, b) : a == b;
}

bool StringHelper::startsWithIgnoreCase(const char* text, const char* prefix) {
    return text && prefix && text::startsWithIgnoringCase(text, prefix);
}

bool StringHelper::endsWith(const char* text, const char* suffix) { return text::endsWith(text, suffix); }

bool StringHelper::startsWith(const char* text, const char* prefix) {
    return text && prefix && std::string_view(text).starts_with(prefix);
}

bool StringHelper::endsWithIgnoreCase(const char* text, const char* suffix) {
    return text && suffix && text::endsWithIgnoringCase(text, suffix);
}

void StringHelper::trim(std::string& text, const char* chars) { trimInPlace(text, text::viewOf(chars)); }

std::string StringHelper::ntoa(int value) { return std::to_string(value); }

std::string StringHelper::ltoa(long value) { return std::to_string(value); }

bool StringHelper::atob(const char* text) { return text && text::sameIgnoringCase(text, "true"); }

const char* StringHelper::btoa(bool value) { return value ? "true" : "false"; }

void StringHelper::replaceChar(std::string& text, char from, char to) {
    std::replace(text.begin(), text.end(), from, to);
}

// The text moves from `pending`, where it stands backwards, to `result`, which never has an occurrence in it behind
// `settled`. A replacement goes back to `pending`, so that it is looked at together with what surrounds it.
void StringHelper::replace(std::string& text, const char* from, const char* to) {
    if (!from || !*from || !to) return;
    const std::string_view what(from), by(to);
    const std::string again(by.rbegin(), by.rend());
    std::size_t looksAgain = std::string::npos;  // A text that does not grow ends by itself.
    if (by.size() > what.size()) looksAgain = kMaxGrowingReplacements;
    if (by.find(what) != std::string_view::npos) looksAgain = 0;

    std::string result, pending(text.rbegin(), text.rend());
    for (std::size_t settled = 0; !pending.empty();) {
        result.push_back(pending.back());
        pending.pop_back();
        if (result.size() - settled < what.size() || !result.ends_with(what)) continue;
        result.resize(result.size() - what.size());
        if (looksAgain > 0) {
            --looksAgain;
            pending += again;
        } else {
            settled = result.append(by).size();
        }
    }
    text = std::move(result);
}

void StringHelper::toupper(std::string& text) {
    std::transform(text.begin(), text.end(), text.begin(), ascii::toUpper);
}

void StringHelper::tolower(std::string& text) {
    std::transform(text.begin(), text.end(), text.begin(), ascii::toLower);
}

char* Utils::strToK(const char* line, int index, const char* separators) {
    if (index < 0) return nullptr;
    const auto found = text::field(text::viewOf(line), static_cast<std::size_t>(index), text::viewOf(separators));
    if (found.empty()) return nullptr;
    char* copy = new char[found.size() + 1];
    copy[found.copy(copy, found.size())] = '\0';
    return copy;
}

int Utils::parseInt(const char* text, int length, int base) {
    if (!text) return 0;
    const unsigned int radix = base == 8 || base == 16 ? static_cast<unsigned int>(base) : 10;
    unsigned int value = 0;  // Wraps; a signed one must not.
    for (int i = 0; i < length; ++i) {
        if (text[i] == '\0' || text[i] == ' ') continue;
        value = value * radix + digitOrRaise(text[i], base);
        if (i + 1 < length && !ascii::isXDigit(text[i + 1])) break;
    }
    return static_cast<int>(value);
}

bool Utils::isdigits(const char* text, const char* allowed) {
    const std::string_view bytes = text::viewOf(text), others = text::viewOf(allowed);
    return !bytes.empty() && std::all_of(bytes.begin(), bytes.end(), [others](char c) {
        return ascii::isDigit(c) || others.find(c) != std::string_view::npos;
    });
}

bool Utils::compareBytes(const void* a, const void* b, std::size_t count) {
    return count == 0 || std::memcmp(a, b, count) == 0;
}

bool Utils::memstr(const void* buffer, std::size_t length, const void* pattern, std::size_t patternLength) {
    if (patternLength > length) return false;
    return patternLength == 0 || ::memmem(buffer, length, pattern, patternLength) != nullptr;
}

char Utils::CHAR_TO_HEX(int value) { return "0123456789ABCDEF"[value & 0xF]; }

char Utils::HEX_TO_CHAR(char high, char low) {
    const auto digit = [](char c) { return std::max(ascii::hexValue(c), 0); };
    return static_cast<char>(digit(high) << 4 | digit(low));
}

std::string Utils::getLocalDate() {
    char text[32];
    const std::tm now = localNow();
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d", &now));
}

std::string Utils::getLocalTime() {
    char text[32];
    const std::tm now = localNow();
    return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S", &now));
}

void Utils::stringTokenizer(const char* text, std::vector<std::string>& list, const char* separators,
                            TokenCallback callback, void* argument) {
    list.clear();
    text::Fields fields(text::viewOf(text), text::viewOf(separators));
    for (std::string_view field; fields.next(field);) {
        if (field.empty()) continue;
        std::string token(field);
        if (callback && argument) callback(token, argument);
        list.push_back(std::move(token));
    }
}

void Utils::trimString(std::string& text, const char* chars) {
    trimInPlace(text, chars ? std::string_view(chars) : text::kBlanks);
}

}  // namespace ZOV_SPACE
