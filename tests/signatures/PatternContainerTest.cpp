#include "PatternContainer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

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
    const std::string md5Line = record("a");
    const std::string chkLine = startRecord("abcd", "n");
    const struct {
        const char* name;
        std::string content;
        unsigned md5Count;
        std::size_t chkCount;
    } cases[] = {
        {"a.hdb", md5Line, 1, 0}, {".hdb", md5Line, 1, 0},  {"a.chk.hdb", md5Line, 1, 0}, {"a.chk", chkLine, 0, 1},
        {"a.hdb", chkLine, 0, 0}, {"a.chk", md5Line, 0, 0}, {"a.HDB", md5Line, 0, 0},     {"a.hdb.txt", md5Line, 0, 0},
        {"hdb", md5Line, 0, 0},   {"a.chK", chkLine, 0, 0},
    };
    for (const auto& c : cases) {
        PatternContainer container;
        EXPECT_EQ(load(container, c.name, c.content), 0) << c.name;
        EXPECT_EQ(container.md5List().count(), c.md5Count) << c.name;
        EXPECT_EQ(container.checkSumList().count(), c.chkCount) << c.name;
        EXPECT_EQ(container.loadedCount(), static_cast<int>(c.md5Count + c.chkCount)) << c.name;
    }
}

TEST(PatternContainer, readsLinesOfAtMost1023Bytes) {
    using namespace std::string_literals;
    const std::string a = record("a");
    const std::string b = record("b");
    // A record line of exactly `length` bytes, its newline included.
    const auto padded = [](std::size_t length) {
        return md5Record("a", std::string(length - md5Record("a", "").size(), 'n'));
    };
    const auto unterminated = [](std::string line) {
        line.pop_back();
        return line;
    };
    const auto nameOf = [](std::size_t length) { return std::string(length - md5Record("a", "").size(), 'n'); };
    const struct {
        const char* why;
        std::string content;
        int loaded;
        std::string nameOfA;
    } cases[] = {
        {"empty file", "", 0, ""},
        {"two lines", a + b, 2, "a"},
        {"no newline at the end", unterminated(a), 0, ""},
        {"no newline behind the second", b + unterminated(a), 1, ""},
        {"CR LF", unterminated(a) + "\r\n", 1, "a"},
        {"several CR", unterminated(a) + "\r\r\n", 1, "a"},
        {"CR alone ends no line", unterminated(a) + "\r" + b, 1, "a\r" + b.substr(0, 32)},
        {"empty and malformed lines", "\n\nnonsense\n" + a + "\n", 1, "a"},
        {"comments", "#\n \t# x\n" + a + "#" + b, 1, "a"},
        {"NUL in the name", unterminated(a) + "\0x\n"s + b, 2, "a"},
        {"NUL first", "\0"s + a + b, 1, ""},
        {"NUL in the digest", a.substr(0, 9) + "\0"s + a.substr(9) + b, 1, ""},
        {"NUL cuts a comment sign off", "\0#"s + b + a, 1, "a"},
        {"1023 bytes", padded(1023), 1, nameOf(1023)},
        {"1024 bytes: the newline is a line of its own", padded(1024), 1, nameOf(1024)},
        {"1025 bytes: cut", padded(1025), 1, nameOf(1024)},
        {"1022 bytes at the end, no newline", unterminated(padded(1023)), 0, ""},
        {"1023 bytes at the end, no newline: a full piece counts", unterminated(padded(1024)), 1, nameOf(1024)},
        {"a record as the second piece", std::string(1023, 'x') + a, 1, "a"},
        {"a comment's second piece is no comment", "#" + std::string(1022, 'x') + a, 1, "a"},
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
    const struct {
        const char* why;
        std::string content;
        int loaded;
    } cases[] = {
        {"none", three, 3},
        {"fewer than there are", "#count:2\n" + three, 2},
        {"more than there are", "#count:4\n" + three, 3},
        {"blank before the number", "#count: \t2\n" + three, 2},
        {"text behind the number", "#count:2 records\n" + three, 2},
        {"CR LF", "#count:2\r\n" + three, 2},
        {"zero", "#count:0\n" + three, 3},
        {"negative", "#count:-1\n" + three, 3},
        {"no number", "#count:\n" + three, 3},
        {"two billion", "#count:2000000000\n" + three, 3},
        {"beyond 32 bits", "#count:4294967297\n" + three, 3},
        {"beyond 64 bits", "#count:99999999999999999999\n" + three, 3},
        {"blank before the sign", " #count:1\n" + three, 3},
        {"capital letter", "#Count:1\n" + three, 3},
        {"after other comments", "# x\n\t#\n#count:2\n" + three, 2},
        {"after an empty line, which is a data line", "\n#count:1\n" + three, 3},
        {"after a record", record("d") + "#count:1\n" + three, 4},
        {"twice", "#count:1\n#count:2\n" + three, 2},
        {"malformed lines do not use it up", "#count:2\nx\ny\n" + three, 2},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        PatternContainer container;
        EXPECT_EQ(load(container, "x.hdb", c.content), 0) << c.why;
        EXPECT_EQ(container.loadedCount(), c.loaded) << c.why;
        EXPECT_EQ(log.count("fail to allocate bmNodes"), 0U) << c.why << ": memory for what the file can hold";
    }
    PatternContainer checkSums;
    EXPECT_EQ(load(checkSums, "x.chk", "#count:1\n" + startRecord("abcd", "n") + startRecord("bcde", "m")), 0);
    EXPECT_EQ(checkSums.loadedCount(), 2) << "a comment like any other";
}

TEST(PatternContainer, laterFilesAddToEarlierOnes) {
    PatternContainer container;
    EXPECT_EQ(load(container, "1.hdb", "#count:1\n" + record("a") + record("refused")), 0);
    EXPECT_EQ(load(container, "2.hdb", "#count:2\n" + record("b") + record("c") + record("refused")), 0);
    EXPECT_EQ(load(container, "3.hdb", record("d") + record("e")), 0);
    EXPECT_EQ(load(container, "4.chk", startRecord("abcd", "n")), 0);
    for (const char* content : {"a", "b", "c", "d", "e"}) EXPECT_EQ(found(container, content), content);
    EXPECT_EQ(found(container, "refused"), "");
    EXPECT_EQ(container.loadedCount(), 6);
}

TEST(PatternContainer, whatCannotBeReadLeavesItAsItWas) {
    const TempDir dir;
    PatternContainer container;
    EXPECT_EQ(container.loadPattern((dir / "missing.hdb").string()), -494);
    EXPECT_EQ(container.loadPattern((dir / "missing.txt").string()), 0) << "not even looked for";
    std::filesystem::create_directory(dir / "folder.chk");
    EXPECT_EQ(container.loadPattern((dir / "folder.chk").string()), -494);
    ASSERT_EQ(::mkfifo((dir / "fifo.hdb").c_str(), 0600), 0);
    EXPECT_EQ(container.loadPattern((dir / "fifo.hdb").string()), -494) << "and it does not wait for a writer";
    EXPECT_EQ(container.loadedCount(), 0);

    // A regular file whose reads fail.
    std::filesystem::create_symlink("/proc/self/mem", dir / "broken.hdb");
    EXPECT_THROW(container.loadPattern((dir / "broken.hdb").string()), ZOV_SPACE::IOException);
    EXPECT_EQ(load(container, "x.hdb", record("a")), 0);
    EXPECT_EQ(found(container, "a"), "a");
}

TEST(PatternContainer, comparesSizesForALinearSearch) {
    const std::uint32_t values[] = {0, 1, 0x80000000U, 0xFFFFFFFFU};
    for (const std::uint32_t& a : values) {
        for (const std::uint32_t& b : values) {
            EXPECT_EQ(PatternContainer::scomp(&a, &b), static_cast<int>(a - b));
        }
    }
}

}  // namespace
