#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/StringBuffer.h"
#include "unused/LimitedBufferBase.h"

namespace {

using namespace ZOV_SPACE;

std::vector<std::string> linesOf(BufferBase& content, int size) {
    IOBuffer in(&content);
    std::string line(static_cast<std::size_t>(size), '?');
    std::vector<std::string> lines;
    while (VoleUtil::readOneLine(line.data(), size, &in)) lines.emplace_back(line.c_str());
    return lines;
}

TEST(ReadOneLine, endsLinesAtTheFirstLfOrElseTheFirstCrAndWithABufferThatThrows) {
    const std::tuple<const char*, std::string, int, std::vector<std::string>> cases[] = {
        {"a later LF wins over an earlier CR", "a\rb\nc\rd", 100, {"a\rb", "c", "d"}},
        {"as long as the buffer: the end is a line", "abc\nd", 4, {"abc", "", "d"}},
        {"a NUL ends the text of its own line only", std::string("a\0b\ncd\n", 7), 100, {"a", "cd"}},
    };
    for (const auto& [why, content, size, lines] : cases) {
        StringBuffer whole(content), blocks("");  // Inserting at the front makes a block for each byte.
        for (auto byte = content.rbegin(); byte != content.rend(); ++byte) blocks.insert(0, &*byte, 1);
        EXPECT_EQ(linesOf(blocks, size), lines) << why << ", many blocks";
        EXPECT_EQ(linesOf(whole, size), lines) << why << ", one block";
    }

    StringBuffer content("ab\ncd\n");
    LimitedBufferBase limited(&content, 3);
    IOBuffer in(&limited);
    in.seek(SEEK_SET, 3);
    char line[8];
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::readOneLine(line, 1, &in), nullptr);
    EXPECT_EQ(in.tell(), 3) << "no room, no reading";
    EXPECT_EQ(VoleUtil::readOneLine(line, sizeof line, &in), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Catch exception in VoleUtil::readOneLine()"});
    EXPECT_EQ(in.tell(), 0);
}

TEST(GetSmartBufferBase, holdsWhatTheFileHas) {
    const long barrier = SmartBufferBase::_barrier;
    const std::tuple<const char*, long, long, bool> cases[] = {
        {"empty", 0, 0, false},
        {"as large as memory takes", barrier, barrier, false},
        {"shrunk below the barrier", barrier + 5000, 10, false},
        {"grown within the last block", 1000, 1001, true},
        {"grown behind a whole block", 2048, 2049, false},
        {"grown, above the barrier", barrier + 1, barrier + 2, true},
    };
    for (const BufferBasePolicy policy : {kMemoryOrFilePolicy, kFilePolicy}) {
        const auto earlier = std::exchange(SmartBufferBase::_policy, policy);
        for (const auto& [why, stated, actual, messageOnGrowth] : cases) {
            SCOPED_TRACE(testing::Message() << why << ", policy " << policy);
            const OwnFd file = fileOf(numbered(actual));
            ::lseek(file.get(), 3, SEEK_SET);
            CapturedLog log;
            const auto buffer = VoleUtil::getSmartBufferBase(file.get(), static_cast<unsigned>(stated));
            ASSERT_NE(buffer, nullptr);
            EXPECT_TRUE(contentOf(*buffer) == numbered(std::min(stated, actual)));
            EXPECT_EQ(log.count("Odd! read more than size!"), messageOnGrowth ? 1u : 0u);
            EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 3);
        }
        SmartBufferBase::_policy = earlier;
    }
}

TEST(GetSmartBufferBase, whatCannotBeReadGivesNull) {
    const OwnFd directory(::open("/", O_RDONLY | O_CLOEXEC)), file = fileOf("abc");
    for (const long size : {10L, SmartBufferBase::_barrier + 1}) {
        EXPECT_EQ(VoleUtil::getSmartBufferBase(directory.get(), static_cast<unsigned>(size)), nullptr) << size;
    }
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 0x80000000), nullptr);
    const auto earlier = std::exchange(SmartBufferBase::_policy, static_cast<BufferBasePolicy>(5));
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 3), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Fail to get SmartBufferBase from a File Descriptor."});
    SmartBufferBase::_policy = earlier;
}

}  // namespace
