// Records are made of contents and explained for others like them; the library's own scan has the last word.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "Explanation.h"
#include "MakeCheckSum.h"
#include "MakeMd5.h"
#include "RecordWriter.h"
#include "support/PeBuilder.h"
#include "support/TempDir.h"
#include "support/ZipBuilder.h"

namespace {

std::string randomBytes(std::mt19937& random, std::size_t size, const char* alphabet, unsigned letters) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = letters == 0 ? static_cast<char>(random()) : alphabet[random() % letters];
    return bytes;
}

// A content of one of four kinds: text, bytes, a program with two sections, and an archive of all of them.
std::string contentOf(unsigned kind, std::mt19937& random) {
    if (kind == 0) return randomBytes(random, 40 + random() % 3000, "Some Words\n  \t", 14);
    if (kind == 1) return randomBytes(random, 1 + random() % 70000, "", random() % 2 == 0 ? 0 : 1);
    if (kind == 2) {
        std::string program = PeBuilder().withSections(2).build() + std::string(0x400, '\0');
        return program.replace(0x200, 0x400, randomBytes(random, 0x400, "", 0));
    }
    ZipBuilder archive;
    for (unsigned i = 0; i < 3; ++i) archive.add({std::string(1, static_cast<char>('a' + i)), contentOf(i, random)});
    return archive.archive();
}

// Bytes changed, cut off or added.
std::string damaged(std::string content, std::mt19937& random) {
    if (random() % 4 == 0) content.resize(random() % (content.size() + 1));
    if (random() % 4 == 0) content += "more";
    const std::size_t reach = random() % 2 == 0 ? 1024 : content.size();  // Headers are what most depends on.
    for (auto i = random() % 3; i > 0 && !content.empty(); --i)
        content[random() % std::min(reach, content.size())] ^= 1;
    return content;
}

// The record, with one digit or field that says something else.
std::string damagedRecord(std::string line, std::mt19937& random) {
    constexpr std::string_view kFixedPart = "00:0000:0000:00:00000000:00000000:0000:00:00000000";
    const std::size_t at = random() % std::min(line.size(), kFixedPart.size());
    if (line[at] != ':' && random() % 2 == 0) line[at] = "0123456789abcdef"[random() % 16];
    return line;
}

struct Seen {
    std::uint64_t matches = 0;
    std::set<std::string> steps;
};

class Explainers : public ContentVisitor {
public:
    Explainers(const Record& record, Seen& seen) : _record(record), _seen(seen) {}
    void onContent(const SeenContent& content) override {
        const Explanation explanation =
            Explainer(content.content).explain(_record);  // Throws if the scanner disagrees.
        _seen.matches += explanation.matches();
        _seen.steps.insert(nameOf(explanation.step));
    }

private:
    const Record& _record;
    Seen& _seen;
};

// How many contents a scan finds it in, with a set of this record alone. Explanations must say the same.
std::uint64_t matchesOf(const std::string& line, RecordKind kind, const std::string& path,
                        std::set<std::string>& steps) {
    Record record{};
    if (parseRecord(kind, line, record)) return 0;
    const TempDir folder;
    folder.write(kind == RecordKind::md5 ? "x.hdb" : "x.chk", line + "\n");
    const auto set = loadSignatures(folder.path().string(), 0, {});
    Seen seen;
    Explainers explainers(record, seen);
    const auto counters = walkContents(set.get(), VOLE_LIMITS_INIT, 0, path, explainers).counters;
    EXPECT_EQ(seen.matches, counters.findings) << line << " in " << path;
    steps.merge(seen.steps);
    return counters.findings;
}

TEST(Records, areMadeOfContentsAndExplainedAsScansHaveIt) {
    std::mt19937 random(16);
    const TempDir box;
    std::set<std::string> steps;
    std::size_t made = 0;
    for (unsigned turn = 0; turn < 200; ++turn) {
        const std::string content = contentOf(turn % 4, random);
        const std::vector<std::string> file = {box.write("f", content)};
        ContentChoice choice;
        choice.members = true;
        choice.form = random() % 4 == 0 ? VOLE_FORM_NORMALISED : VOLE_FORM_RAW;
        ReadingTerms quiet;
        quiet.note = [](const std::string&) {};
        quiet.incompleteIsFine = true;
        const RecordKind kind = turn % 5 == 0 ? RecordKind::md5 : RecordKind::checkSum;
        NewRecords records;
        CheckSumTerms how;
        how.anchor = {static_cast<ChkOffsetType>(turn / 4 % kOffsetTypeCount), static_cast<std::uint8_t>(random() % 3)};
        how.length = static_cast<std::uint8_t>(4 + random() % 252);
        how.corpus = {box.write("similar", damaged(content, random))};
        if (kind == RecordKind::md5) {
            makeMd5Records(file, choice, RecordNames("%n"), quiet, records);
        } else {
            makeCheckSumRecords(file, choice, how, RecordNames("%n"), quiet, records);
        }
        made += records.lines().size();
        for (const std::string& line : records.lines()) {
            Record record{};
            ASSERT_FALSE(parseRecord(kind, line, record)) << line;
            EXPECT_EQ(recordLine(record), line);
            EXPECT_GE(matchesOf(line, kind, file[0], steps), 1U) << line;
            const bool isRefuted = matchesOf(line, kind, how.corpus[0], steps) != 0;
            EXPECT_FALSE(kind == RecordKind::checkSum && isRefuted) << line;
            for (int i = 0; i < 6; ++i) {
                matchesOf(damagedRecord(line, random), kind, box.write("g", damaged(content, random)), steps);
            }
        }
    }
    EXPECT_GT(made, 100U);
    EXPECT_EQ(steps, (std::set<std::string>{"check-string", "check-sum-1", "check-sum-2", "digest", "match", "offset-1",
                                            "offset-2", "pe", "range-1", "range-2", "size", "target"}));
}

}  // namespace
