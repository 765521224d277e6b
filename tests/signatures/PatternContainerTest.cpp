#include "PatternContainer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "Exception.h"
#include "support/CapturedLog.h"
#include "support/GoldenRows.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"

namespace {

// The name of the record for the content "a".
std::string nameFor(const PatternContainer& container) {
    const std::string digest = md5Of("a");
    const char* const name = container.md5List().virusFoundMD5(reinterpret_cast<const unsigned char*>(digest.data()));
    return name ? name : "";
}

TEST(PatternContainer, readsLinesOfAtMost1023Bytes) {
    using namespace std::string_literals;
    const TempDir dir;
    const std::string a = md5Record("a", "a"), b = md5Record("b", "b");
    const auto nameOf = [](std::size_t length) { return std::string(length - md5Record("a", "").size(), 'n'); };
    // A record line of exactly `length` bytes, its newline included.
    const auto padded = [&](std::size_t length) { return md5Record("a", nameOf(length)); };
    const auto unterminated = [](const std::string& line) { return line.substr(0, line.size() - 1); };
    const std::tuple<const char*, std::string, int, std::string> cases[] = {
        {"no newline at the end", b + unterminated(a), 1, ""},
        {"several CR", unterminated(a) + "\r\r\n" + b, 2, "a"},
        {"comments, empty and malformed lines", "#\n \t# x\n\n\nnonsense\n" + a + "#" + b, 1, "a"},
        {"NUL in the name", unterminated(a) + "\0x\n"s + b, 2, "a"},
        {"NUL in the digest", a.substr(0, 9) + "\0"s + a.substr(9) + b, 1, ""},
        {"1024 bytes: the newline is a line of its own", padded(1024), 1, nameOf(1024)},
        {"1023 bytes at the end, no newline: a full piece counts", unterminated(padded(1024)), 1, nameOf(1024)},
        {"a record as a comment's second piece", "#" + std::string(1022, 'x') + a, 1, "a"},
        {"10 MB", std::string(10 << 20, 'x') + "\n" + a, 1, "a"},
        {"a line across the reader's blocks", std::string(256 * 1024 - 40, '\n') + a, 1, "a"},
    };
    for (const auto& [why, content, loaded, nameOfA] : cases) {
        PatternContainer container;
        EXPECT_EQ(container.loadPattern(dir.write("x.hdb", content)), 0) << why;
        EXPECT_EQ(container.loadedCount(), loaded) << why;
        EXPECT_EQ(nameFor(container), nameOfA) << why;
    }
}

TEST(PatternContainer, anAnnouncedCountLimitsTheRestOfItsFile) {
    const TempDir dir;
    const std::string three = md5Record("a", "a") + md5Record("b", "b") + md5Record("c", "c");
    for (const GoldenRow& row : goldenRows(VOLE_SIGNATURE_ANSWERS, "count")) {
        const int loaded = std::stoi(row[1]);
        CapturedLog log;
        PatternContainer container;
        EXPECT_EQ(container.loadPattern(dir.write("x.hdb", row[0] + three)), 0) << row[2];
        EXPECT_EQ(container.loadedCount(), loaded) << row[2];
        EXPECT_EQ(log.count("fail to allocate bmNodes"), 0U) << row[2];
        EXPECT_EQ(log.count("current_sig >= total_sigs"), loaded == 2 ? 1U : 0U) << row[2];
        EXPECT_EQ(container.loadPattern(dir.write("later.hdb", three)), 0);
        EXPECT_EQ(container.loadedCount(), loaded + 3) << row[2] << ": of its own file only";
    }
}

TEST(PatternContainer, tellsAFileThatIsGoneFromOneThatCannotBeOpenedOrRead) {
    const TempDir dir;
    std::filesystem::create_directory(dir / "folder.hdb");
    std::filesystem::create_symlink("nowhere", dir / "link.hdb");
    std::filesystem::create_symlink("/proc/self/mem", dir / "mem.chk");
    PatternContainer container;
    EXPECT_EQ(container.loadPattern(dir / "x.HDB"), 0) << "not looked for";
    EXPECT_EQ(container.loadPattern(dir / "x.hdb"), PatternContainer::kNoFile);
    EXPECT_EQ(container.loadPattern(dir / "link.hdb"), PatternContainer::kNoFile);
    EXPECT_EQ(container.loadPattern(dir / "folder.hdb"), PatternContainer::kCannotOpen);
    EXPECT_THROW(container.loadPattern(dir / "mem.chk"), ZOV_SPACE::IOException) << "no end of the file";
}

}  // namespace
