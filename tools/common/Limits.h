// Limits.h: the limits of a scan as options: their names, how their values are read, and how they are shown.
#ifndef VOLE_TOOL_LIMITS_H
#define VOLE_TOOL_LIMITS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vole.h"

enum class LimitUnit { bytes, number, seconds };

struct LimitOption {
    const char* name;  // Without the dashes.
    const char* help;
    LimitUnit unit;
    std::uint64_t most;
    std::uint64_t (*get)(const vole_limits& limits);
    void (*set)(vole_limits& limits, std::uint64_t value);
};

// One for each field of vole_limits.
std::span<const LimitOption> limitOptions();

// What kind of value the option takes, for a usage line and for the message about another one.
const char* placeholderOf(LimitUnit unit);
const char* descriptionOf(LimitUnit unit);

// Bytes with the suffix K, M or G, powers of 1,024, or without; a plain number; or seconds, fractions allowed, as
// milliseconds, rounded up. Nothing for anything else, and for values that are too large for the option.
std::optional<std::uint64_t> parseLimit(const LimitOption& option, std::string_view text);

// "2G", "0.5 s", "unlimited".
std::string showLimit(LimitUnit unit, std::uint64_t value);

// "max-size    = 2G" and so on.
std::vector<std::string> limitLines(const vole_limits& limits);

// The same text for the same limits.
std::string limitsKey(const vole_limits& limits);

#endif  // VOLE_TOOL_LIMITS_H
