#include "SlotFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "BlockTest.h"
#include "ByteOrder.h"

namespace {

// Few values, so that hits are frequent.
unsigned char smallByte(std::mt19937& random) { return static_cast<unsigned char>(random() % 4); }

TEST(BlockTest, everyVersionFindsTheSame) {
    std::mt19937 random(1);
    for (const std::uint32_t blockCount : {100U, 128U, 300U}) {
        std::vector<char> bytes(blockCount * kBlockSlots + 3);
        // The upper four bits make no difference.
        const auto byte = [&] { return static_cast<char>(5U * smallByte(random) | (random() & 0xF0U)); };
        std::generate(bytes.begin(), bytes.end(), byte);
        std::vector<BlockRows> rows1(blockCount);
        std::vector<BlockRows> rows2(blockCount);
        // One value a set, or none, so that some blocks have no hit.
        for (auto* const rows : {&rows1, &rows2}) {
            for (BlockRows& row : *rows) {
                for (auto& sets : row.sets) {
                    std::generate(std::begin(sets), std::end(sets), [&] {
                        return random() % 8 ? byteCode(static_cast<std::uint8_t>(5U * smallByte(random)))
                                            : std::uint8_t{0};
                    });
                }
            }
        }
        std::vector<std::vector<std::pair<std::uint32_t, std::uint32_t>>> answers;
        for (const BlockTest test : availableBlockTests()) {
            std::vector<BlockHits> hits(blockCount);
            hits.resize(test(bytes.data(), rows1.data(), rows2.data(), blockCount, hits.data()));
            auto& answer = answers.emplace_back();
            for (const BlockHits& hit : hits) answer.emplace_back(hit.block, hit.slots);
            std::sort(answer.begin(), answer.end());
            EXPECT_EQ(answer, answers[0]) << blockCount;
        }
        EXPECT_FALSE(answers[0].empty());
        EXPECT_LT(answers[0].size(), blockCount);
    }
}

// Groups at random slots, each with some check strings; every range of groups over a window of exactly their bytes.
TEST(SlotFilter, reportsEveryGroupThatIsHitAndNoneOutsideTheRange) {
    std::mt19937 random(2);
    std::vector<std::int16_t> slots;
    std::vector<std::uint32_t> firstEntries{0}, checkStrings;
    for (int slot = -3000; slot < 3000; slot += 1 + static_cast<int>(random() % 3)) {
        slots.push_back(static_cast<std::int16_t>(slot));
        for (auto n = 1 + random() % (slot % 50 == 0 ? 12 : 3); n > 0; --n) {
            checkStrings.push_back(static_cast<std::uint32_t>(random() & 0x03030303));
        }
        firstEntries.push_back(static_cast<std::uint32_t>(checkStrings.size()));
    }
    const SlotFilter filter(slots, firstEntries, checkStrings);
    for (int turn = 0; turn < 300; ++turn) {
        const std::size_t first = random() % slots.size();
        const std::size_t last =
            first + 1 + random() % std::min<std::size_t>(slots.size() - first, turn % 2 ? 90 : 4000);
        // On the heap and of the exact length, so that the address sanitizer sees a byte too many.
        std::vector<char> window(static_cast<std::size_t>(slots[last - 1] - slots[first]) + 4);
        std::generate(window.begin(), window.end(), [&] { return static_cast<char>(smallByte(random)); });
        std::vector<std::uint32_t> reported;
        filter.collect(first, last, window, reported);
        std::sort(reported.begin(), reported.end());
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
