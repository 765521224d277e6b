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

    // Files below a directory, relative to it; links count as files.
    static std::vector<std::string> filesBelow(const fs::path& directory) {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(directory)) {
            if (entry.is_symlink() || !entry.is_directory()) {
                files.push_back(entry.path().lexically_relative(directory).string());
            }
        }
        std::sort(files.begin(), files.end());
        return files;
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
        {"plain", "a.txt", "a.txt"},
        {"folders", "x.unar/y/z", "x.unar/y/z"},
        {"leading dots", "./a", "a"},
        {"one step up", "../a", "a"},
        {"many steps up", "../../../../etc/passwd", "etc/passwd"},
        {"steps up inside", "a/../../../b", "a/b"},
        {"absolute", "/tmp/a", "tmp/a"},
        {"runs of slashes", "a///b//c", "a/b/c"},
        {"more dots are a name", ".../..a", ".../..a"},
        {"ends at a NUL", std::string("a\0/../b", 7), "a"},
        {"format characters", "%s%n", "%s%n"},
        {"only steps up", "../..", ""},
        {"only the directory", "./", ""},
        {"only a slash", "/", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        fs::remove_all(root);
        fs::create_directory(root);
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, c.name);
        EXPECT_EQ(log.count("Dump BufferBase >> [" + std::string(c.name.c_str()) + "] @ [" + root.string() + "]"), 1u);
        if (c.file.empty()) {
            EXPECT_EQ(filesBelow(outside.path()), std::vector<std::string>{});
            EXPECT_EQ(log.count(failureFor("")), 1u);
        } else {
            EXPECT_EQ(filesBelow(outside.path()), std::vector<std::string>{"dumps/" + c.file});
            EXPECT_EQ(TempDir::contentOf(root / c.file), "dumped");
            EXPECT_EQ(log.count("[dump bufferbase]: " + (root / c.file).string()), 1u);
        }
    }
}

TEST_F(DumpBufferBase, doesNothingWithoutADirectoryABufferOrAName) {
    CapturedLog log;
    VoleUtil::dumpBufferBase(nullptr, "a");
    VoleUtil::dumpBufferBase(&buffer, "");
    VoleUtil::dumpBufferBase(&buffer, std::string("\0a", 2));
    EXPECT_EQ(log.lines().size(), 3u);  // That they were asked for.
    diag::setDumpPath("");
    VoleUtil::dumpBufferBase(&buffer, "a");
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_EQ(filesBelow(outside.path()), std::vector<std::string>{});
}

TEST_F(DumpBufferBase, plantedLinksAndSpecialFilesAreNotFollowed) {
    const std::string victim = outside.write("victim", "untouched");
    fs::create_directory(outside / "elsewhere");
    fs::create_directory_symlink(outside / "elsewhere", root / "folder");
    fs::create_symlink(victim, root / "file");
    fs::create_symlink(outside / "new", root / "dangling");
    ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0600), 0);

    for (const std::string name : {"folder/a", "folder/a/b", "file", "dangling", "fifo", "file/a"}) {
        SCOPED_TRACE(name);
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, name);
        EXPECT_EQ(log.count(failureFor(name)), 1u);
    }
    EXPECT_EQ(filesBelow(outside.path()),
              (std::vector<std::string>{"dumps/dangling", "dumps/fifo", "dumps/file", "dumps/folder", "victim"}));
    EXPECT_EQ(TempDir::contentOf(victim), "untouched");
}

TEST_F(DumpBufferBase, theDirectoryItselfMayBeALinkOrMissing) {
    fs::create_directory(outside / "real");
    fs::create_directory_symlink(outside / "real", outside / "link");
    diag::setDumpPath((outside / "link").c_str());
    VoleUtil::dumpBufferBase(&buffer, "a");
    diag::setDumpPath((outside / "new/deep//").c_str());
    VoleUtil::dumpBufferBase(&buffer, "b");
    EXPECT_EQ(filesBelow(outside.path()), (std::vector<std::string>{"link", "new/deep/b", "real/a"}));
}

TEST_F(DumpBufferBase, folderThatCannotBeMadeIsReported) {
    VoleUtil::dumpBufferBase(&buffer, "a");
    CapturedLog log;
    VoleUtil::dumpBufferBase(&buffer, "a/b/c");
    EXPECT_EQ(log.count("[dump bufferbase]: mkdir [" + root.string() + "/a/b] fail."), 1u);
    EXPECT_EQ(log.count(failureFor("a/b/c")), 1u);
    EXPECT_EQ(TempDir::contentOf(root / "a"), "dumped");
}

TEST_F(DumpBufferBase, longComponentsAreCutAndStayApart) {
    const std::string stem(300, 'n');
    VoleUtil::dumpBufferBase(&buffer, stem + "1/" + std::string(200, 'x'));
    VoleUtil::dumpBufferBase(&buffer, stem + "2/" + std::string(201, 'x'));
    std::vector<std::string> files = filesBelow(root);
    ASSERT_EQ(files.size(), 2u);
    for (const std::string& file : files) EXPECT_EQ(file.size(), 401u) << file;
    EXPECT_NE(files[0].substr(0, 200), files[1].substr(0, 200));
}

TEST_F(DumpBufferBase, foldersMayLieDeeperThanAPathCanSay) {
    std::string deep;
    for (int i = 0; i < 30; ++i) deep += std::string(190, 'd') + '/';
    CapturedLog log;
    VoleUtil::dumpBufferBase(&buffer, deep + "end");
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_NE(log.lines()[1].find("[dump bufferbase]: " + root.string() + "/ddd"), std::string::npos);
}

TEST_F(DumpBufferBase, largeContentReplacesWhatWasThere) {
    std::string content(300000, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i % 251);
    ZOV_SPACE::MemBufferBase large;
    large.append(content.data(), static_cast<int>(content.size()));
    VoleUtil::dumpBufferBase(&large, "a");
    EXPECT_EQ(TempDir::contentOf(root / "a"), content);
    VoleUtil::dumpBufferBase(&buffer, "a");
    EXPECT_EQ(TempDir::contentOf(root / "a"), "dumped");
    EXPECT_EQ(fs::status(root / "a").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(DumpBufferBase, aThrowingBufferLeavesAnEmptyFile) {
    ZOV_SPACE::LimitedBufferBase limited(&buffer, 3);
    EXPECT_NO_THROW(VoleUtil::dumpBufferBase(&limited, "a"));
    EXPECT_EQ(TempDir::contentOf(root / "a"), "");
}

TEST(DepuratePathname, collapsesSlashes) {
    for (const auto& [path, result] : {std::pair{"a///b//c", "a/b/c"}, {"////", "/"}, {"", ""}, {"a/b", "a/b"}}) {
        std::string text = path;
        VoleUtil::DepuratePathname(text);
        EXPECT_EQ(text, result);
    }
}

}  // namespace
