// SetStat.h: what a set of signatures consists of, in numbers.
#ifndef VOLE_WORKSHOP_SET_STAT_H
#define VOLE_WORKSHOP_SET_STAT_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "CheckSumPattern.h"

struct SetStat {
    // By how many bits a size has: bin n has the sizes from 2^(n-1) to 2^n - 1, the first one those that are 0.
    static constexpr std::size_t kSizeBins = 32;

    std::uint64_t files = 0;
    std::uint64_t md5 = 0, checkSums = 0;  // Records.
    std::uint64_t leftOut = 0;             // Lines that are no records.
    std::array<std::uint64_t, kSizeBins> md5Sizes{};
    std::array<std::uint64_t, kTargetCount> targets{};                               // Of check-sum records.
    std::array<std::uint64_t, static_cast<std::size_t>(kOffsetTypeCount)> places{};  // By offset type.
    std::uint64_t falseAlarms = 0;
    std::uint64_t memoryBytes = 0;  // That a process takes to search them.
};

// Throws LoadError.
SetStat statOf(const std::vector<std::string>& paths);

#endif  // VOLE_WORKSHOP_SET_STAT_H
