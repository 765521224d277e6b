#include "PatternContainer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>

#include "Exception.h"
#include "support/CapturedLog.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"

namespace {

// Contents and their record lines; the records are named as the contents are.
std::string record(const std::string& content) { return md5Record(content, content); }

std::string found(const PatternContainer& container, const std::string& content) {
    const std::string digest = md5Of(content);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(digest.data());
    const BmPattern* const pattern = container.md5List().virusFoundMD5(bytes);
    return pattern ? pattern->name : "";
}

int load(PatternContainer& container, const std::string& name, const std::string& content) {
    const TempDir dir;
    return container.loadPattern(dir.write(name, content));
}

TEST(PatternContainer, fileNamesDecideWhatIsLoaded) {
    const std::string both = record("a") + startRecord("abcd", "n") + startRecord("bcde", "m");
    const std::pair<const char*, int> cases[] = {{"a.hdb", 1}, {".hdb", 1},      {"a.chk.hdb", 1}, {"a.chk", 2},
                                                 {"a.HDB", 0}, {"a.hdb.txt", 0}, {"hdb", 0}};
    for (const auto& [name, count] : cases) {
        PatternContainer container;
        EXPECT_EQ(load(container, name, both), 0) << name;
        EXPECT_EQ(container.loadedCount(), count) << name;
        EXPECT_EQ(container.md5List().count(), count == 1 ? 1U : 0U) << name;
    }
}

TEST(PatternContainer, readsLinesOfAtMost1023Bytes) {
    using namespace std::string_literals;
    const std::string a = record("a"), b = record("b");
    const auto nameOf = [](std::size_t length) { return std::string(length - md5Record("a", "").size(), 'n'); };
    // A record line of exactly `length` bytes, its newline included.
    const auto padded = [&](std::size_t length) { return md5Record("a", nameOf(length)); };
    const auto unterminated = [](const std::string& line) { return line.substr(0, line.size() - 1); };
    const struct {
        const char* why;
        std::string content;
        int loaded;
        std::string nameOfA;
    } cases[] = {
        {"no newline at the end", b + unterminated(a), 1, ""},
        {"several CR", unterminated(a) + "\r\r\n" + b, 2, "a"},
        {"comments, empty and malformed lines", "#\n \t# x\n\n\nnonsense\n" + a + "#" + b, 1, "a"},
        {"NUL in the name", unterminated(a) + "\0x\n"s + b, 2, "a"},
        {"NUL in the digest", a.substr(0, 9) + "\0"s + a.substr(9) + b, 1, ""},
        {"1024 bytes: the newline is a line of its own", padded(1024), 1, nameOf(1024)},
        {"1025 bytes: cut", padded(1025), 1, nameOf(1024)},
        {"1023 bytes at the end, no newline: a full piece counts", unterminated(padded(1024)), 1, nameOf(1024)},
        {"a record as a comment's second piece", "#" + std::string(1022, 'x') + a, 1, "a"},
        {"10 MB", std::string(10 << 20, 'x') + "\n" + a, 1, "a"},
        {"a line across the reader's blocks", std::string(256 * 1024 - 40, '\n') + a, 1, "a"},
    };
    for (const auto& c : cases) {
        PatternContainer container;
        EXPECT_EQ(load(container, "x.hdb", c.content), 0) << c.why;
        EXPECT_EQ(container.loadedCount(), c.loaded) << c.why;
        EXPECT_EQ(found(container, "a"), c.nameOfA) << c.why;
    }
}

TEST(PatternContainer, anAnnouncedCountLimitsTheRestOfItsFile) {
    const std::string three = record("a") + record("b") + record("c");
    const std::set<std::string> limited{"#count: \t2 records\r\n", "# x\n\t#\n#count:2\n", "#count:1\n#count:2\n",
                                        "#count:2\nx\ny\n"};
    const std::set<std::string> unlimited{"#count:4\n",          "#count:-1\n",  "#count:\n",
                                          "#count:2000000000\n", " #count:1\n",  "#count:4294967297\n",
                                          "#Count:1\n",          "\n#count:1\n", "x\n#count:1\n"};
    for (const auto* const starts : {&limited, &unlimited}) {
        const int loaded = starts == &limited ? 2 : 3;
        for (const std::string& start : *starts) {
            CapturedLog log;
            PatternContainer container;
            EXPECT_EQ(load(container, "x.hdb", start + three), 0) << start;
            EXPECT_EQ(container.loadedCount(), loaded) << start;
            EXPECT_EQ(log.count("fail to allocate bmNodes"), 0U) << start << ": memory for what the file can hold";
            EXPECT_EQ(load(container, "later.hdb", three), 0);
            EXPECT_EQ(container.loadedCount(), loaded + 3) << start << ": of its own file only";
        }
    }
}

TEST(PatternContainer, whatCannotBeReadLeavesItAsItWas) {
    const TempDir dir;
    PatternContainer container;
    EXPECT_EQ(load(container, "x.hdb", record("a")), 0);
    std::filesystem::create_directory(dir / "folder.chk");
    ASSERT_EQ(::mkfifo((dir / "fifo.hdb").c_str(), 0600), 0);
    for (const std::string name : {"missing.hdb", "folder.chk", "fifo.hdb"}) {
        EXPECT_EQ(container.loadPattern((dir / name).string()), -494) << name;
    }
    EXPECT_EQ(container.loadPattern((dir / "missing.txt").string()), 0) << "not even looked for";
    // A regular file whose reads fail.
    std::filesystem::create_symlink("/proc/self/mem", dir / "broken.hdb");
    EXPECT_THROW(container.loadPattern((dir / "broken.hdb").string()), ZOV_SPACE::IOException);
    EXPECT_EQ(container.loadedCount(), 1);
    EXPECT_EQ(found(container, "a"), "a");
}

}  // namespace
