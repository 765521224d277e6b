#include "PatternContainer.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "Exception.h"
#include "PatternLineReader.h"
#include "PatternParser.h"
#include "io/RegularFile.h"
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

// Whole files against the same lines one by one, where every line of odd form stands among usual ones, and every place
// of a usual line has had each of some bytes.
TEST(PatternContainer, readsUsualLinesAsItReadsAllOthers) {
    const std::string usual = "00112233445566778899aabbccddeEFf:2147483647:A name\n";
    std::string all;
    for (std::size_t at = 0; at < usual.size(); ++at) {
        for (const char c : std::string("\0\n\r :#/0@9AGFag`f\xB1", 19)) {
            std::string line = usual;
            line[at] = c;
            all += line + md5Record(line, std::to_string(all.size()));
        }
    }
    for (const char* size :
         {"", "0", "00000000001", "2147483648", "9999999999", "4294967297", "-1", "+7", " 7", "7x"}) {
        all += usual.substr(0, 33) + size + ":" + std::string(size) + "-name\n";
    }
    for (std::size_t length = 900; length < 1100; ++length) {
        all += usual.substr(0, 33) + "5:" + std::string(length - 36, 'n') + "\n";
    }
    const TempDir dir;
    PatternContainer whole;
    ASSERT_EQ(whole.loadPattern(dir.write("all.hdb", all)), 0);
    BmList single;
    PatternLineReader lines(ZOV_SPACE::openRegularFile((dir / "all.hdb").c_str()));
    for (PatternLine line; lines.next(line);) {
        if (line.kind == PatternLine::Kind::data) single.append(line.text);
    }
    single.index();
    ASSERT_EQ(whole.md5List().count(), single.count());
    ASSERT_EQ(whole.loadedCount(), static_cast<int>(single.count()));
    const auto namesIn = [](const BmList& list, const unsigned char* digest) {
        std::string names;
        list.visitFoundMD5(digest, [&](const char* name) {
            names.append(name).append("|");
            return false;
        });
        return names;
    };
    PatternLineReader again(ZOV_SPACE::openRegularFile((dir / "all.hdb").c_str()));
    for (PatternLine line; again.next(line);) {
        unsigned char digest[Md5::kDigestSize] = {};
        if (PatternParser::tryHex2str(line.text.substr(0, 32), digest, 32)) continue;
        ASSERT_EQ(namesIn(whole.md5List(), digest), namesIn(single, digest)) << line.text;
        const auto size = static_cast<std::uint32_t>(line.text.size());
        ASSERT_EQ(whole.md5List().verifyFileSize(size), single.verifyFileSize(size));
    }
    for (const std::uint32_t size : {0U, 1U, 5U, 7U, 214748364U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 2147480647U}) {
        EXPECT_EQ(whole.md5List().verifyFileSize(size), single.verifyFileSize(size)) << size;
    }
}

}  // namespace
