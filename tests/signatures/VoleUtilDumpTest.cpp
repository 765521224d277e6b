#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>
#include <tuple>

#include "VoleUtil.h"
#include "support/CapturedLog.h"
#include "support/StringBuffer.h"
#include "support/TempDir.h"
#include "unused/LimitedBufferBase.h"

namespace {

namespace fs = std::filesystem;

struct DumpBufferBase : testing::Test {
    DumpBufferBase() { useDirectory("dumps"); }
    ~DumpBufferBase() override { diag::setDumpPath(nullptr); }

    void useDirectory(const std::string& name) {
        root = outside / name;
        diag::setDumpPath(root.c_str());
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
    ZOV_SPACE::StringBuffer buffer{"dumped"};
};

TEST_F(DumpBufferBase, namesStayBelowTheDirectory) {
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"many steps up", "../../../../etc/passwd", "etc/passwd"},
        {"steps up inside", "a/../../../b", "a/b"},
        {"absolute, runs of slashes", "//a///b/c", "a/b/c"},
        {"more dots are a name", ".../..a", ".../..a"},
        {"ends at a NUL", std::string("a\0/../b", 7), "a"},
        {"only steps up", "../..", ""},  // No file is written.
    };
    for (const auto& [why, name, file] : cases) {
        SCOPED_TRACE(why);
        useDirectory(why + std::string("/deep"));
        CapturedLog log;
        VoleUtil::dumpBufferBase(&buffer, name);
        EXPECT_EQ(log.count("Dump BufferBase >> [" + std::string(name.c_str()) + "] @ [" + root.string() + "]"), 1u);
        EXPECT_EQ(log.count(failureFor("")), file.empty() ? 1u : 0u);
        EXPECT_EQ(log.count("[dump bufferbase]: " + (root / file).string()), file.empty() ? 0u : 1u);
        EXPECT_EQ(TempDir::contentOf(root / file), file.empty() ? "" : "dumped");
    }
    VoleUtil::dumpBufferBase(&buffer, std::string("\0a", 2));
    diag::setDumpPath("");
    VoleUtil::dumpBufferBase(&buffer, "a");
    EXPECT_EQ(files().size(), std::size(cases) - 1) << "nothing without a name or a directory";
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
    ZOV_SPACE::StringBuffer large(content);
    const mode_t mask = ::umask(0);
    VoleUtil::dumpBufferBase(&large, "own/a");
    ::umask(mask);
    EXPECT_EQ(TempDir::contentOf(root / "own/a"), content);
    EXPECT_EQ(fs::status(root / "own/a").permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(root / "own").permissions(), fs::perms(0700));
    ZOV_SPACE::LimitedBufferBase limited(&buffer, 3);
    VoleUtil::dumpBufferBase(&limited, "own/a");
    EXPECT_EQ(TempDir::contentOf(root / "own/a"), "") << "the buffer throws";
}

}  // namespace
