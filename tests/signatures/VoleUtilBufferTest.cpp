#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "VoleUtil.h"
#include "io/IOBuffer.h"
#include "io/SmartBufferBase.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/GoldenRows.h"
#include "support/StringBuffer.h"
#include "support/TempDir.h"
#include "unused/LimitedBufferBase.h"

namespace {

using namespace ZOV_SPACE;

// The lines, each in brackets.
std::string linesOf(BufferBase& content, int size) {
    IOBuffer in(&content);
    std::string line(static_cast<std::size_t>(size), '?'), lines;
    while (VoleUtil::readOneLine(line.data(), size, &in)) lines += "[" + std::string(line.c_str()) + "]";
    return lines;
}

TEST(ReadOneLine, endsLinesAtTheFirstLfOrElseTheFirstCrAndWithABufferThatThrows) {
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "lines")) {
        const std::string& content = row[0];
        const int size = std::stoi(row[1]);
        StringBuffer whole(content), blocks("");  // Inserting at the front makes a block for each byte.
        for (auto byte = content.rbegin(); byte != content.rend(); ++byte) blocks.insert(0, &*byte, 1);
        EXPECT_EQ(linesOf(blocks, size), row[2]) << row[3] << ", many blocks";
        EXPECT_EQ(linesOf(whole, size), row[2]) << row[3] << ", one block";
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

namespace fs = std::filesystem;

struct DumpBufferBase : testing::Test {
    DumpBufferBase() { useDirectory("dumps"); }
    ~DumpBufferBase() override { host::setDumpPath(nullptr); }

    void useDirectory(const std::string& name) {
        root = outside / name;
        host::setDumpPath(root.c_str());
    }

    // Paths relative to `outside`; links count as files.
    std::set<std::string> files() const {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(outside.path())) {
            if (entry.is_symlink() || !entry.is_directory())
                found.insert(entry.path().lexically_relative(outside.path()));
        }
        return found;
    }

    std::string failureFor(const std::string& name) const {
        return "Can not dump virtual file to : [" + root.string() + "/" + name + "]";
    }

    TempDir outside;
    fs::path root;
    StringBuffer buffer{"dumped"};
    diag::ListenerScope listening{host::listener()};  // Who says where to dump.
};

TEST_F(DumpBufferBase, namesStayBelowTheDirectory) {
    std::size_t expected = 0;
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "dump")) {
        const std::string &name = row[0], &file = row[1], &why = row[2];
        SCOPED_TRACE(why);
        useDirectory(why + "/deep");
        expected += file.empty() ? 0 : 1;
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, name);
        EXPECT_EQ(log.count("Dump BufferBase >> [" + std::string(name.c_str()) + "] @ [" + root.string() + "]"), 1u);
        EXPECT_EQ(log.count(failureFor("")), file.empty() ? 1u : 0u);
        EXPECT_EQ(log.count("[dump bufferbase]: " + (root / file).string()), file.empty() ? 0u : 1u);
        EXPECT_EQ(TempDir::contentOf(root / file), file.empty() ? "" : "dumped");
    }
    VoleUtil::dumpBufferBase(&buffer, std::string("\0a", 2));
    host::setDumpPath("");
    VoleUtil::dumpBufferBase(&buffer, "a");
    EXPECT_EQ(files().size(), expected) << "nothing without a name or a directory";
}

TEST_F(DumpBufferBase, followsNoPlantedLinksAndSpecialFilesOrSaysThatItCannot) {
    const std::string victim = outside.write("victim", "untouched");
    for (const char* folder : {"elsewhere", "dumps"}) fs::create_directory(outside / folder);
    fs::create_directory_symlink(outside / "elsewhere", root / "folder");
    fs::create_symlink(victim, root / "file");
    fs::create_symlink(outside / "new", root / "dangling");
    ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0600), 0);
    const std::set<std::string> before = files();
    for (const std::string name : {"folder/a", "file", "dangling", "fifo", "file/a"}) {
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, name);
        EXPECT_EQ(log.count(failureFor(name)), 1u) << name;
        EXPECT_EQ(log.count("/" + name.substr(0, name.find('/')) + "] fail."), name.ends_with("/a") ? 1u : 0u) << name;
    }
    EXPECT_EQ(files(), before);
    EXPECT_EQ(TempDir::contentOf(victim), "untouched");
}

TEST_F(DumpBufferBase, longComponentsAreCutAndStayApart) {
    for (const char* end : {"1", "2"}) {
        VoleUtil::dumpBufferBase(&buffer, std::string(300, 'n') + end + "/" + std::string(200, 'x'));
    }
    ASSERT_EQ(files().size(), 2u);
    for (const std::string& file : files()) EXPECT_EQ(file.size(), std::string("dumps/").size() + 401) << file;
}

TEST_F(DumpBufferBase, contentReplacesWhatWasThereForTheOwnerAlone) {
    const std::string content = std::string(150000, 'x') + std::string(150000, 'y');
    StringBuffer large(content);
    const mode_t mask = ::umask(0);
    VoleUtil::dumpBufferBase(&large, "own/a");
    ::umask(mask);
    EXPECT_EQ(TempDir::contentOf(root / "own/a"), content);
    EXPECT_EQ(fs::status(root / "own/a").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(root / "own").permissions(), fs::perms(0700));
    LimitedBufferBase limited(&buffer, 3);
    VoleUtil::dumpBufferBase(&limited, "own/a");
    EXPECT_EQ(TempDir::contentOf(root / "own/a"), "") << "the buffer throws";
}

}  // namespace
