#include "HttpText.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace icap {
namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

std::string unquoted(std::string_view text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::string(text);
    std::string plain;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        const bool escapes = text[i] == '\\' && i + 2 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\');
        plain += text[escapes ? ++i : i];
    }
    return plain;
}

// `charset'language'percent-encoded`, the charset left alone.
std::string extendedValue(std::string_view text) {
    for (int quotes = 0; quotes < 2; ++quotes) {
        const std::size_t quote = text.find('\'');
        if (quote == text.npos) break;
        text.remove_prefix(quote + 1);
    }
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned char byte = 0;
        const char* const digits = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            plain += static_cast<char>(byte);
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    return lower;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::vector<std::string_view> splitList(std::string_view text, char separator) {
    std::vector<std::string_view> items;
    std::size_t start = 0;
    bool quoted = false;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && quoted && text[i] == '\\') {
            ++i;
        } else if (i < text.size() && text[i] == '"') {
            quoted = !quoted;
        } else if (i >= text.size() || (!quoted && text[i] == separator)) {
            items.push_back(trimmed(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    // A quote that is not closed, or a backslash at the end, hides nothing.
    if (start < text.size()) items.push_back(trimmed(text.substr(start)));
    return items;
}

std::string parameterOf(std::string_view header, std::string_view name) {
    std::optional<std::string> plain;
    for (const std::string_view item : splitList(header, ';')) {
        const std::size_t equals = item.find('=');
        if (equals == item.npos) continue;
        const std::string key = lowerCase(trimmed(item.substr(0, equals)));
        const std::string_view value = trimmed(item.substr(equals + 1));
        if (key == std::string(name) + '*') return extendedValue(value);
        if (key == name && !plain) plain = unquoted(value);
    }
    return plain.value_or("");
}

std::string headerSafe(std::string_view text, std::size_t most) {
    constexpr std::string_view kPlain = "-._~:/@+=()!$&'*[]{}^# ";
    constexpr std::string_view kMore = "...";
    std::string safe;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isAlnum = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (safe.size() + 3 + kMore.size() > most) return safe + std::string(kMore);
        if (isAlnum || kPlain.find(c) != kPlain.npos) {
            safe += c;
        } else {
            safe += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return safe;
}

std::string htmlEscaped(std::string_view text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            case '\'':
                safe += "&#39;";
                break;
            default:
                safe += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
        }
    }
    return safe;
}

}  // namespace icap
