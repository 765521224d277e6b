#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "VoleUtil.h"
#include "io/FilteredBufferBase.h"
#include "io/MemBufferBase.h"
#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

class DumpBufferBase : public testing::Test {
protected:
    DumpBufferBase() {
        fs::create_directory(root);
        diag::setDumpPath(root.c_str());
        buffer.append("dumped", 6);
    }
    ~DumpBufferBase() override { diag::setDumpPath(nullptr); }

    // Relative to `outside`; links count as files.
    std::vector<std::string> files() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(outside.path())) {
            if (entry.is_symlink() || !entry.is_directory()) {
                found.push_back(entry.path().lexically_relative(outside.path()).string());
            }
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    std::string failureFor(const std::string& name) const {
        return "Can not dump virtual file to : [" + root.string() + "/" + name + "]";
    }

    TempDir outside;
    fs::path root = outside / "dumps";
    ZOV_SPACE::MemBufferBase buffer;
};

TEST_F(DumpBufferBase, namesStayBelowTheDirectory) {
    struct Case {
        const char* why;
        std::string name, file;  // file empty: none is written
    };
    const Case cases[] = {
        {"many steps up", "../../../../etc/passwd", "etc/passwd"},
        {"steps up inside", "a/../../../b", "a/b"},
        {"absolute, runs of slashes", "//a///b/c", "a/b/c"},
        {"more dots are a name", ".../..a", ".../..a"},
        {"ends at a NUL", std::string("a\0/../b", 7), "a"},
        {"format characters", "%s%n", "%s%n"},
        {"only steps up", "../..", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        fs::remove_all(root);
        fs::create_directory(root);
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, c.name);
        EXPECT_EQ(log.count("Dump BufferBase >> [" + std::string(c.name.c_str()) + "] @ [" + root.string() + "]"), 1u);
        EXPECT_EQ(log.count(failureFor("")), c.file.empty() ? 1u : 0u);
        EXPECT_EQ(files(), std::vector<std::string>(c.file.empty() ? 0 : 1, "dumps/" + c.file));
        if (c.file.empty()) continue;
        EXPECT_EQ(TempDir::contentOf(root / c.file), "dumped");
        EXPECT_EQ(log.count("[dump bufferbase]: " + (root / c.file).string()), 1u);
    }
}

TEST_F(DumpBufferBase, doesNothingWithoutADirectoryOrAName) {
    VoleUtil::dumpBufferBase(&buffer, std::string("\0a", 2));
    diag::setDumpPath("");
    VoleUtil::dumpBufferBase(&buffer, "a");
    EXPECT_EQ(files(), std::vector<std::string>{});
}

TEST_F(DumpBufferBase, plantedLinksAndSpecialFilesAreNotFollowed) {
    const std::string victim = outside.write("victim", "untouched");
    fs::create_directory(outside / "elsewhere");
    fs::create_directory_symlink(outside / "elsewhere", root / "folder");
    fs::create_symlink(victim, root / "file");
    fs::create_symlink(outside / "new", root / "dangling");
    ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0600), 0);

    for (const std::string name : {"folder/a", "file", "dangling", "fifo", "file/a"}) {
        SCOPED_TRACE(name);
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, name);
        EXPECT_EQ(log.count(failureFor(name)), 1u);
    }
    EXPECT_EQ(files(),
              (std::vector<std::string>{"dumps/dangling", "dumps/fifo", "dumps/file", "dumps/folder", "victim"}));
    EXPECT_EQ(TempDir::contentOf(victim), "untouched");
}

TEST_F(DumpBufferBase, makesTheDirectoryAndFoldersOrSaysThatItCannot) {
    diag::setDumpPath((outside / "new/deep").c_str());
    VoleUtil::dumpBufferBase(&buffer, "a");
    CapturedLog log;
    VoleUtil::dumpBufferBase(&buffer, "a/b/c");
    EXPECT_EQ(log.count("/new/deep/a/b] fail."), 1u);
    EXPECT_EQ(files(), std::vector<std::string>{"new/deep/a"});
}

TEST_F(DumpBufferBase, longComponentsAreCutAndStayApart) {
    const std::string stem(300, 'n');
    VoleUtil::dumpBufferBase(&buffer, stem + "1/" + std::string(200, 'x'));
    VoleUtil::dumpBufferBase(&buffer, stem + "2/" + std::string(201, 'x'));
    ASSERT_EQ(files().size(), 2u);
    for (const std::string& file : files()) EXPECT_EQ(file.size(), std::string("dumps/").size() + 401) << file;
    EXPECT_NE(files()[0].substr(0, 206), files()[1].substr(0, 206));
}

TEST_F(DumpBufferBase, contentReplacesWhatWasThere) {
    const std::string content = std::string(150000, 'x') + std::string(150000, 'y');
    ZOV_SPACE::MemBufferBase large;
    large.append(content.data(), static_cast<int>(content.size()));
    VoleUtil::dumpBufferBase(&large, "a");
    EXPECT_EQ(TempDir::contentOf(root / "a"), content);
    EXPECT_EQ(fs::status(root / "a").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    ZOV_SPACE::LimitedBufferBase limited(&buffer, 3);
    EXPECT_NO_THROW(VoleUtil::dumpBufferBase(&limited, "a"));
    EXPECT_EQ(TempDir::contentOf(root / "a"), "") << "the buffer throws";
}

}  // namespace
