#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "VoleUtil.h"
#include "io/FileBufferBase.h"
#include "io/FilteredBufferBase.h"
#include "io/IOBuffer.h"
#include "io/MemBufferBase.h"
#include "io/OwnFd.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"

namespace {

using namespace ZOV_SPACE;

constexpr char kGrown[] = "Odd! read more than size!";

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

std::string contentOf(BufferBase& buffer) {
    std::string bytes(static_cast<std::size_t>(buffer.getSize()), '\0');
    const int count = buffer.read(0, bytes.data(), static_cast<int>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

// Restores the buffers' process-wide settings.
struct BufferSettings {
    ~BufferSettings() { SmartBufferBase::_policy = policy; }
    BufferBasePolicy policy = SmartBufferBase::_policy;
};

std::vector<std::string> linesOf(BufferBase& content, int size) {
    IOBuffer in(&content);
    std::vector<char> line(static_cast<std::size_t>(size));
    std::vector<std::string> lines;
    while (VoleUtil::readOneLine(line.data(), size, &in)) lines.emplace_back(line.data());
    EXPECT_EQ(in.tell(), in.getSize());
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
        {"nothing", "", 100, {}},
        {"LF", "ab\ncd\n", 100, {"ab", "cd"}},
        {"last line without an end", "ab\ncd", 100, {"ab", "cd"}},
        {"CR LF leaves the CR", "ab\r\ncd", 100, {"ab\r", "cd"}},
        {"CR alone", "ab\rcd\r", 100, {"ab", "cd"}},
        {"a later LF wins over an earlier CR", "a\rb\nc\rd", 100, {"a\rb", "c", "d"}},
        {"empty lines", "\n\n", 100, {"", ""}},
        {"longer than the buffer", "abcdefg\nh", 4, {"abc", "def", "g", "h"}},
        {"as long as the buffer: the end is a line", "abc\nd", 4, {"abc", "", "d"}},
        {"CR LF across the buffer's end", "ab\r\nc", 4, {"ab", "", "c"}},
        {"a buffer for one byte", "a\nb", 2, {"a", "", "b"}},
        {"a NUL ends the text of its own line only", std::string("a\0b\ncd\n", 7), 100, {"a", "cd"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const int length = static_cast<int>(c.content.size());
        MemBufferBase whole;
        whole.append(c.content.data(), length);
        EXPECT_EQ(linesOf(whole, c.size), c.lines) << "one block";

        MemBufferBase blocks;  // Inserting at the front makes a block for each byte.
        for (int i = length; i-- > 0;) blocks.insert(0, c.content.data() + i, 1);
        EXPECT_EQ(linesOf(blocks, c.size), c.lines) << "many blocks";

        FileBufferBase file;
        file.append(c.content.data(), length);
        EXPECT_EQ(linesOf(file, c.size), c.lines) << "a file";
    }
}

TEST(ReadOneLine, refusesNullsAndBuffersWithoutRoom) {
    MemBufferBase content;
    content.append("ab\n", 3);
    IOBuffer in(&content);
    char line[8];
    EXPECT_EQ(VoleUtil::readOneLine(nullptr, 8, &in), nullptr);
    EXPECT_EQ(VoleUtil::readOneLine(line, 8, nullptr), nullptr);
    EXPECT_EQ(VoleUtil::readOneLine(line, 1, &in), nullptr);
    EXPECT_EQ(VoleUtil::readOneLine(line, -5, &in), nullptr);
    EXPECT_EQ(in.tell(), 0);
}

TEST(ReadOneLine, aThrowingBufferEndsTheLinesAtTheStart) {
    MemBufferBase content;
    content.append("ab\ncd\n", 6);
    LimitedBufferBase limited(&content, 3);
    IOBuffer in(&limited);
    in.seek(SEEK_SET, 3);
    char line[8];
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::readOneLine(line, sizeof line, &in), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Catch exception in VoleUtil::readOneLine()"});
    EXPECT_EQ(in.tell(), 0);
}

TEST(Readn, readsUntilTheCountOrTheEnd) {
    const OwnFd file = fileWith("0123456789");  // At position 3.
    char buf[16] = {};
    EXPECT_EQ(VoleUtil::readn(file.get(), buf, 4), 4);
    EXPECT_EQ(VoleUtil::readnAt(file.get(), buf + 4, 16, 8), 2);
    EXPECT_STREQ(buf, "345689");
    EXPECT_EQ(VoleUtil::readn(file.get(), buf, 16), 3);
    EXPECT_EQ(VoleUtil::readn(-1, buf, 1), -1);

    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const OwnFd out(ends[0]);
    OwnFd in(ends[1]);
    ASSERT_EQ(::write(in.get(), "ab", 2), 2);
    in.reset();
    EXPECT_EQ(VoleUtil::readn(out.get(), buf, 16), 2);

    MemBufferBase content;
    content.append("56789", 5);
    IOBuffer buffer(&content);
    EXPECT_EQ(VoleUtil::readn(&buffer, buf, 4), 4);
    EXPECT_EQ(VoleUtil::readn(&buffer, buf, 4), 1);
    EXPECT_EQ(VoleUtil::readn(&buffer, buf, 4), 0);
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
        {"announced as empty", 0, 10, false},
        {"one byte", 1, 1, false},
        {"just below a block", 1023, 1023, false},
        {"a block", 1024, 1024, false},
        {"just above a block", 1025, 1025, false},
        {"many blocks", 100000, 100000, false},
        {"as large as memory takes", barrier, barrier, false},
        {"just above the barrier", barrier + 1, barrier + 1, false},
        {"far above the barrier", 3 * barrier + 5, 3 * barrier + 5, false},
        {"shrunk", 5000, 100, false},
        {"shrunk to nothing", 5000, 0, false},
        {"shrunk in the last block", 5000, 4999, false},
        {"shrunk, above the barrier", barrier + 5000, barrier + 10, false},
        {"shrunk in the last block, above the barrier", barrier + 5000, barrier + 4999, false},
        {"shrunk below the barrier", barrier + 5000, 10, false},
        {"shrunk to nothing, from above the barrier", barrier + 5000, 0, false},
        {"grown within the last block", 1000, 1001, true},
        {"grown beyond the last block", 5000, 10000, true},
        {"grown behind a whole block", 2048, 2049, false},
        {"grown, above the barrier", barrier + 1, barrier + 2, true},
        {"grown behind a whole block, above the barrier", barrier + 1024, barrier + 2048, false},
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
            EXPECT_EQ(buffer->getSize(), std::min(c.stated, c.actual));
            EXPECT_TRUE(contentOf(*buffer) == patternOf(std::min(c.stated, c.actual)));
            EXPECT_EQ(log.lines().size(), c.messageOnGrowth ? 1u : 0u);
            EXPECT_EQ(log.count(kGrown), c.messageOnGrowth ? 1u : 0u);
            EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 3);
        }
    }
}

TEST(GetSmartBufferBase, whatCannotBeReadGivesNull) {
    const unsigned large = static_cast<unsigned>(SmartBufferBase::_barrier) + 1;
    const OwnFd directory(::open("/", O_RDONLY | O_CLOEXEC));
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const OwnFd out(ends[0]), in(ends[1]);
    for (const unsigned size : {10u, 1024u, large}) {
        EXPECT_EQ(VoleUtil::getSmartBufferBase(directory.get(), size), nullptr) << size;
        EXPECT_EQ(VoleUtil::getSmartBufferBase(out.get(), size), nullptr) << size;
        EXPECT_EQ(VoleUtil::getSmartBufferBase(-1, size), nullptr) << size;
    }
    const OwnFd file = fileWith("abc");
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 0x80000000), nullptr);
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 0xFFFFFFFF), nullptr);
}

TEST(GetSmartBufferBase, aBufferThatCannotBeMadeIsReported) {
    const BufferSettings restoreLater;
    SmartBufferBase::_policy = static_cast<BufferBasePolicy>(5);
    const OwnFd file = fileWith("abc");
    CapturedLog log(CapturedLog::kErrors);
    EXPECT_EQ(VoleUtil::getSmartBufferBase(file.get(), 3), nullptr);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"Fail to get SmartBufferBase from a File Descriptor."});
}

}  // namespace
