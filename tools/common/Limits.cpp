#include "Limits.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace {

constexpr std::uint64_t kKibi = 1024;

struct Suffix {
    char letter;
    std::uint64_t factor;
};
constexpr Suffix kSuffixes[] = {{'G', kKibi* kKibi* kKibi}, {'M', kKibi* kKibi}, {'K', kKibi}};

template <auto Field>
constexpr LimitOption limitOption(const char* name, LimitUnit unit, const char* help) {
    using Value = std::remove_reference_t<decltype(vole_limits{}.*Field)>;
    return {name,
            help,
            unit,
            std::numeric_limits<Value>::max(),
            [](const vole_limits& limits) -> std::uint64_t { return limits.*Field; },
            [](vole_limits& limits, std::uint64_t value) { limits.*Field = static_cast<Value>(value); }};
}

constexpr LimitOption kLimitOptions[] = {
    limitOption<&vole_limits::max_content>("max-size", LimitUnit::bytes, "Largest file that is looked into"),
    limitOption<&vole_limits::max_member>("max-member", LimitUnit::bytes, "Largest archive member, unpacked"),
    limitOption<&vole_limits::max_total>("max-total", LimitUnit::bytes, "Bytes unpacked from one file"),
    limitOption<&vole_limits::max_members>("max-members", LimitUnit::number, "Archive members in one file"),
    limitOption<&vole_limits::max_depth>("max-depth", LimitUnit::number, "Archives within each other"),
    limitOption<&vole_limits::max_ratio>("max-ratio", LimitUnit::number, "Unpacked to packed size of a member"),
    limitOption<&vole_limits::max_time_ms>("time-limit", LimitUnit::seconds, "Time for one file"),
};

// What from_chars() makes of the whole text.
template <class Number, class... Format>
std::optional<Number> parseWhole(std::string_view text, Format... format) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, format...);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return value;
}

std::optional<std::uint64_t> parseBytes(std::string_view text) {
    std::uint64_t factor = 1;
    for (const Suffix& suffix : kSuffixes) {
        if (text.empty() || (text.back() & ~0x20) != suffix.letter) continue;
        factor = suffix.factor;
        text.remove_suffix(1);
        break;
    }
    const auto number = parseWhole<std::uint64_t>(text);
    if (!number || *number > std::numeric_limits<std::uint64_t>::max() / factor) return std::nullopt;
    return *number * factor;
}

std::optional<std::uint64_t> parseSeconds(std::string_view text) {
    constexpr double kMostSeconds = 1e12;
    const auto seconds = parseWhole<double>(text, std::chars_format::fixed);
    // Written so that it is false for what is no number.
    if (!seconds || !(*seconds >= 0 && *seconds <= kMostSeconds)) return std::nullopt;
    return static_cast<std::uint64_t>(std::ceil(*seconds * 1000));
}

std::string showBytes(std::uint64_t bytes) {
    for (const Suffix& suffix : kSuffixes) {
        if (bytes % suffix.factor == 0) return std::to_string(bytes / suffix.factor) + suffix.letter;
    }
    return std::to_string(bytes);
}

std::string showSeconds(std::uint64_t milliseconds) {
    std::string text = std::to_string(milliseconds / 1000);
    if (const std::uint64_t rest = milliseconds % 1000; rest != 0) {
        text += '.' + std::to_string(1000 + rest).substr(1);
    }
    return text + " s";
}

}  // namespace

std::span<const LimitOption> limitOptions() { return kLimitOptions; }

const char* placeholderOf(LimitUnit unit) {
    if (unit == LimitUnit::bytes) return "SIZE";
    return unit == LimitUnit::seconds ? "SECONDS" : "N";
}

const char* descriptionOf(LimitUnit unit) {
    if (unit == LimitUnit::bytes) return "a size such as 500, 64K, 10M or 2G";
    return unit == LimitUnit::seconds ? "a number of seconds such as 30 or 0.5" : "a number that is not too large";
}

std::optional<std::uint64_t> parseLimit(const LimitOption& option, std::string_view text) {
    const auto value = option.unit == LimitUnit::bytes     ? parseBytes(text)
                       : option.unit == LimitUnit::seconds ? parseSeconds(text)
                                                           : parseWhole<std::uint64_t>(text);
    return value && *value <= option.most ? value : std::nullopt;
}

std::string showLimit(LimitUnit unit, std::uint64_t value) {
    if (value == 0) return "unlimited";
    if (unit == LimitUnit::bytes) return showBytes(value);
    return unit == LimitUnit::seconds ? showSeconds(value) : std::to_string(value);
}

std::vector<std::string> limitLines(const vole_limits& limits) {
    constexpr std::size_t kNameColumn = 12;
    std::vector<std::string> lines;
    for (const LimitOption& option : kLimitOptions) {
        std::string line(option.name);
        line.resize(kNameColumn, ' ');
        lines.push_back(line + "= " + showLimit(option.unit, option.get(limits)));
    }
    return lines;
}

std::string limitsKey(const vole_limits& limits) {
    std::string key;
    for (const LimitOption& option : kLimitOptions) {
        key += std::string(option.name) + '=' + std::to_string(option.get(limits)) + ' ';
    }
    return key;
}
