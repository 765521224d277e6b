#include "ArchiveMarks.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/StringBuffer.h"

namespace ZOV_SPACE {
namespace {

using namespace std::string_literals;

// Every distance from the places where the search goes over to something else: lanes, steps of them, blocks, the end.
TEST(ArchiveMarks, areFoundWhereverTheyStand) {
    const std::string marks[] = {"PK\3\4"s,         "PK\5\6"s,          "Rar!\x1A\7\0"s,
                                 "Rar!\x1A\7\1\0"s, "7z\xBC\xAF'\x1C"s, "MSCF\0\0\0\0"s};
    for (unsigned i = 0; i < std::size(marks); ++i) {
        for (const auto& [size, from] : {std::pair{300U, 10U}, std::pair{65536U + 20U, 65536U - 20U}}) {
            // Letters of others, and what has the same lower bits.
            std::string filler;
            while (filler.size() < size) filler += "P\xCB!K'S7M\x9A\xE1";
            for (std::size_t at = from; at + marks[i].size() <= size; ++at) {
                StringBuffer content(filler.substr(0, at) + marks[i] + filler.substr(at + marks[i].size(), size - at));
                ContentBytes bytes(content);
                const auto found = nextArchiveMark(bytes, kAllMarks, 1, bytes.size());
                ASSERT_TRUE(found) << i << ' ' << at;
                EXPECT_EQ(found->position, static_cast<std::int64_t>(at));
                EXPECT_EQ(found->kind, 1U << i);
                EXPECT_EQ(found->end() - found->position, static_cast<std::int64_t>(marks[i].size()));
                EXPECT_FALSE(nextArchiveMark(bytes, kAllMarks & ~found->kind, 0, bytes.size()));
            }
        }
    }
}

}  // namespace
}  // namespace ZOV_SPACE
