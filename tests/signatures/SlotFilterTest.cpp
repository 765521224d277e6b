#include "SlotFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "ByteOrder.h"

namespace {

// Groups at random slots, each with some check strings; every range of groups over a window of exactly their bytes.
TEST(SlotFilter, everyVersionReportsTheGroupsThatAreHitAndNoneOutsideTheRange) {
    std::mt19937 random(2);
    std::vector<std::int16_t> slots;
    std::vector<std::uint32_t> firstEntries{0}, checkStrings;
    for (int slot = -3000; slot < 3000; slot += 1 + static_cast<int>(random() % 3)) {
        slots.push_back(static_cast<std::int16_t>(slot));
        for (auto n = 1 + random() % (slot % 50 == 0 ? 12 : 3); n > 0; --n) {
            checkStrings.push_back(static_cast<std::uint32_t>((random() & 0x03030303) * 5));
        }
        firstEntries.push_back(static_cast<std::uint32_t>(checkStrings.size()));
    }
    const SlotFilter filter(slots, firstEntries, checkStrings);
    for (int turn = 0; turn < 300; ++turn) {
        const std::size_t first = random() % slots.size();
        const std::size_t last =
            first + 1 + random() % std::min<std::size_t>(slots.size() - first, turn % 2 ? 90 : 4000);
        // On the heap and of the exact length, so that the address sanitizer sees a byte too many. Few values, so that
        // hits are frequent; the upper four bits make chance hits only.
        std::vector<char> window(static_cast<std::size_t>(slots[last - 1] - slots[first]) + 4);
        const unsigned noise = turn % 3 == 0 ? 0xF0 : 0;
        std::generate(window.begin(), window.end(),
                      [&] { return static_cast<char>(random() % 4 * 5 | (random() & noise)); });
        std::vector<std::uint32_t> reported;
        for (const BlockTest test : availableBlockTests()) {
            std::vector<std::uint32_t> groups;
            filter.collect(first, last, window, groups, test);
            std::sort(groups.begin(), groups.end());
            ASSERT_TRUE(test == availableBlockTests()[0] || groups == reported) << "versions differ";
            reported = groups;
        }
        ASSERT_TRUE(reported.empty() || (reported.front() >= first && reported.back() < last));
        for (std::size_t group = first; group < last; ++group) {
            const std::uint32_t bytes = ZOV_SPACE::loadU32(window.data() + (slots[group] - slots[first]));
            const auto end = checkStrings.begin() + firstEntries[group + 1];
            const bool hit = std::find(checkStrings.begin() + firstEntries[group], end, bytes) != end;
            ASSERT_TRUE(!hit || std::binary_search(reported.begin(), reported.end(), group)) << group;
        }
    }
}

}  // namespace
