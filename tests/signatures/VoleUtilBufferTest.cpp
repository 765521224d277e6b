#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "VoleUtil.h"
#include "io/FilteredBufferBase.h"
#include "io/IOBuffer.h"
#include "io/MemBufferBase.h"
#include "io/OwnFd.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"

namespace {

using namespace ZOV_SPACE;

std::string patternOf(long size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i ^ i >> 8 ^ i >> 16);
    return bytes;
}

OwnFd fileWith(const std::string& content) {
    OwnFd file(::memfd_create("content", MFD_CLOEXEC));
    EXPECT_EQ(::write(file.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    ::lseek(file.get(), 3, SEEK_SET);
    return file;
}

// Restores the buffers' process-wide settings.
struct BufferSettings {
    ~BufferSettings() { SmartBufferBase::_policy = policy; }
    BufferBasePolicy policy = SmartBufferBase::_policy;
};

std::vector<std::string> linesOf(BufferBase& content, int size) {
    IOBuffer in(&content);
    std::string line(static_cast<std::size_t>(size), '?');
    std::vector<std::string> lines;
    while (VoleUtil::readOneLine(line.data(), size, &in)) lines.emplace_back(line.c_str());
    return lines;
}

TEST(ReadOneLine, endsLinesAtTheFirstLfOrElseTheFirstCr) {
    struct Case {
        const char* why;
        std::string content;
        int size;
        std::vector<std::string> lines;
    };
    const Case cases[] = {
        {"a later LF wins over an earlier CR", "a\rb\nc\rd", 100, {"a\rb", "c", "d"}},
        {"as long as the buffer: the end is a line", "abc\nd", 4, {"abc", "", "d"}},
        {"CR LF across the buffer's end", "ab\r\nc", 4, {"ab", "", "c"}},
        {"a NUL ends the text of its own line only", std::string("a\0b\ncd\n", 7), 100, {"a", "cd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const int length = static_cast<int>(c.content.size());
        MemBufferBase blocks;  // Inserting at the front makes a block for each byte.
        for (int i = length; i-- > 0;) blocks.insert(0, c.content.data() + i, 1);
        EXPECT_EQ(linesOf(blocks, c.size), c.lines) << "many blocks";

        MemBufferBase whole;
        whole.append(c.content.data(), length);
        EXPECT_EQ(linesOf(whole, c.size), c.lines) << "one block";
    }
}

TEST(ReadOneLine, aThrowingBufferEndsTheLinesAtTheStart) {
    MemBufferBase content;
    content.append("ab\ncd\n", 6);
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
    struct Case {
        const char* why;
        long stated, actual;
        bool messageOnGrowth;
    };
    const Case cases[] = {
        {"empty", 0, 0, false},
        {"a block", 1024, 1024, false},
        {"as large as memory takes", barrier, barrier, false},
        {"far above the barrier", 3 * barrier + 5, 3 * barrier + 5, false},
        {"shrunk below the barrier", barrier + 5000, 10, false},
        {"grown within the last block", 1000, 1001, true},
        {"grown behind a whole block", 2048, 2049, false},
        {"grown, above the barrier", barrier + 1, barrier + 2, true},
    };
    for (const BufferBasePolicy policy : {kMemoryOrFilePolicy, kFilePolicy}) {
        const BufferSettings restoreLater;
        SmartBufferBase::_policy = policy;
        for (const Case& c : cases) {
            SCOPED_TRACE(testing::Message() << c.why << ", policy " << policy);
            const OwnFd file = fileWith(patternOf(c.actual));
            CapturedLog log;
            const auto buffer = VoleUtil::getSmartBufferBase(file.get(), static_cast<unsigned>(c.stated));
            ASSERT_NE(buffer, nullptr);
            std::string content(static_cast<std::size_t>(buffer->getSize()), '?');
            buffer->read(0, content.data(), static_cast<int>(content.size()));
            EXPECT_TRUE(content == patternOf(std::min(c.stated, c.actual)));
            EXPECT_EQ(log.lines().size(), c.messageOnGrowth ? 1u : 0u);
            EXPECT_EQ(log.count("Odd! read more than size!"), c.messageOnGrowth ? 1u : 0u);
            EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 3);
        }
    }
}

TEST(GetSmartBufferBase, whatCannotBeReadGivesNull) {
    const OwnFd directory(::open("/", O_RDONLY | O_CLOEXEC)), file = fileWith("abc");
    const auto large = static_cast<unsigned>(SmartBufferBase::_barrier) + 1;
    for (const unsigned size : {10u, 1024u, large}) {
        EXPECT_EQ(VoleUtil::getSmartBufferBase(directory.get(), size), nullptr) << size;
    }
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 0x80000000), nullptr);
    const BufferSettings restoreLater;
    SmartBufferBase::_policy = static_cast<BufferBasePolicy>(5);
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 3), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Fail to get SmartBufferBase from a File Descriptor."});
}

}  // namespace
