// From an archive to records on the work list, and to what a scan reports of them.
#include "ArchiveStep.h"

#include <malloc.h>

#include <cstring>
#include <functional>
#include <set>
#include <tuple>
#include <vector>

#include "HostFace.h"
#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/EngineTest.h"
#include "support/GoldenRows.h"
#include "support/SignatureText.h"
#include "support/StringBuffer.h"
#include "support/ZipBuilder.h"

namespace {

struct Opened {
    ArchiveEnd end = ArchiveEnd::done;
    std::vector<std::string> names, contents;
    std::string messages;  // Without their positions, each with a line feed behind it.
};

Opened open(const std::string& archive, const OptionValues& options, const std::string& name = "f",
            std::int64_t mostWaiting = WorkList::kMostWaiting) {
    const _st_ArchEntry record{std::make_unique<ZOV_SPACE::StringBuffer>(archive), 0, ContentName(name)};
    const TempDir dumps;
    setDumpPath(dumps.path().c_str());  // Content that is to be dumped is not let go of.
    WorkList list(mostWaiting);
    Opened opened;
    EngineLog log(1);
    HostFace face(options);
    opened.end = unarchiveOneFile(face, list, record);
    setDumpPath(nullptr);
    for (const std::string& line : log.taken()) opened.messages += line.substr(line.find("] ") + 2) + "\n";
    for (const _st_ArchEntry& entry : list) {
        EXPECT_EQ(entry.level, 1);
        EXPECT_TRUE(!entry.buffer || entry.buffer->getType() == 6);
        opened.names.push_back(entry.name.text());
        opened.contents.push_back(entry.buffer ? contentOf(*entry.buffer) : "gone");
    }
    return opened;
}

std::string zipOf(std::initializer_list<ZipMember> members) { return ZipBuilder(members).archive(); }

// A ZIP of members such as the golden file has them.
std::string zipOfMany(const std::string& members) {
    ZipBuilder zip;
    std::istringstream words(members);
    for (std::string word; words >> word;) {
        unsigned packed = 0, unpacked = 0;
        if (std::sscanf(word.c_str(), "%u/%u", &packed, &unpacked) == 2) {
            zip.add({"e", std::string(std::min(packed, 1000U), 'e'), 0, kNoDescriptor, 0, {}, {}, packed, unpacked});
            continue;
        }
        const bool directory = word.ends_with('d');
        for (unsigned i = 0; i < packed; ++i) {
            ZipMember member{"d/", "", 0};
            if (!directory) member = {std::to_string(i), "small"};
            zip.add(member);
        }
    }
    return zip.archive();
}

TEST(Unarchive, entriesAreTakenUpToTheLimits) {
    for (const auto& [why, members, limits, taken, message] : goldenRows<5>(VOLE_ENGINE_ANSWERS, "limit")) {
        SCOPED_TRACE(why);
        OptionValues o{};
        std::istringstream(limits) >> o.maxEntries >> o.maxRatio >> o.maxLevelEntries >> o.maxDepth >> o.maxSize;
        const Opened opened = open(zipOfMany(members), o);
        EXPECT_EQ(std::to_string(opened.names.size()), taken);
        EXPECT_EQ(opened.messages, message);
        EXPECT_EQ(opened.end == ArchiveEnd::givenUp, message.starts_with("Unarchive Exception: "));
    }
    OptionValues smaller = kDefaultLimits;
    smaller.maxSize = 8999;
    const Opened opened = open(zipOf({{"sizes behind it", std::string(9000, 'a'), 0, kSignedDescriptor}}), smaller);
    EXPECT_EQ(opened.messages, "Oversize entry(size): [9000] > [8999]\n");
    EXPECT_TRUE(opened.names.empty());
}

TEST(Unarchive, entriesThatUnpackToMoreThanTheySayAreCutAndReportedOnce) {
    const std::string large(300'000, 'x');
    OptionValues options = kDefaultLimits;
    options.maxSize = 1000;
    const ZipMember liar{"liar", large, 8, 0, 0, {}, {}, {}, 10U}, odd{"odd", "as it is stored", 12};
    const Opened opened = open(zipOf({liar, odd, {"next", "next"}}), options);
    EXPECT_EQ(opened.contents, (std::vector<std::string>{large.substr(0, 1000), "as it is stored", "next"}));
    EXPECT_EQ(opened.messages,
              "Unarchive Exception: BufferBase exceeded size limit\n"
              "Unknown method, the packed bytes are scanned: <odd>\n");
    EXPECT_EQ(opened.end, ArchiveEnd::done);
}

// A member that does not unpack.
const ZipMember kTorn{"torn", "", 8, kSignedDescriptor, 0, {}, "\x4b\x4c\x4a\x06\xff\xff\xff\xff"};

TEST(Unarchive, whatWaitsIsBounded) {
    const std::string content(5000, 'c');
    const ZipMember a{"a", content, 0}, b{"b", content, 0};
    const std::tuple<const char*, std::string, std::int64_t, std::vector<std::string>> cases[] = {
        {"within the bound", zipOf({a, b}), 12'000, {content, content}},
        {"what passes it is not kept", zipOf({a, b, a}), 9'000, {content, "gone"}},
        {"nothing is begun beyond it", zipOf({kTorn, a}), 500, {"abc"}},
    };
    for (const auto& [why, archive, mostWaiting, contents] : cases) {
        const Opened opened = open(archive, kDefaultLimits, "f", mostWaiting);
        EXPECT_EQ(opened.contents, contents) << why;
        EXPECT_EQ(opened.messages.ends_with("Unarchive Exception: Out of budget\n"), mostWaiting < 10'000) << why;
    }
}

TEST(Unarchive, aRecordWhoseContentIsGoneTakesLittleMemory) {
    constexpr int kRecords = 1000;
    const std::string archive = zipOfMany(std::to_string(kRecords));
    const _st_ArchEntry record{std::make_unique<ZOV_SPACE::StringBuffer>(archive), 0, ContentName("f")};
    VoleDebugger everything{3, [](const char*) {}, {}}, nothing{0, nullptr, {}};  // Held lines count.
    setDebugger(&everything);
    WorkList list;
    const std::size_t before = ::mallinfo2().uordblks;
    HostFace face({0, 0, 0, 50, 0});
    EXPECT_EQ(unarchiveOneFile(face, list, record), ArchiveEnd::done);
    EXPECT_LE(::mallinfo2().uordblks - before, kRecords * 512U);
    setDebugger(&nothing);
    EXPECT_EQ(list.size(), std::size_t{kRecords});
}

TEST(Unarchive, namesAreDerivedFromTheArchives) {
    for (const auto& [why, parent, entry, name] : goldenRows<4>(VOLE_ENGINE_ANSWERS, "member")) {
        const Opened opened = open(zipOf({{"first", "1"}, {"d/", "", 0}, {entry, "2"}}), kDefaultLimits, parent);
        ASSERT_EQ(opened.names.size(), 2U);
        EXPECT_EQ(opened.names[1], name) << why;
    }
}

using ArchiveScan = EngineTest;

const std::string kNeedle = "the needle in the haystack";

// The content in a ZIP, that in a ZIP, and so on.
std::string nested(int depth, const std::string& content) {
    return depth == 0 ? content : zipOf({{"n", nested(depth - 1, content), depth % 2 ? 8 : 0}});
}

TEST_F(ArchiveScan, findsWhatIsNestedUpToTheDepthLimit) {
    know(md5Record(kNeedle, "Needle"));
    for (const int limit : {0, 1, 3, 50}) {
        OptionValues options = kDefaultLimits;
        options.maxDepth = limit;
        VoleOptions::set(options);
        EXPECT_EQ(scan(nested(limit, kNeedle)), "Needle");
        EXPECT_EQ(scan(nested(limit + 1, kNeedle)), "0");
    }
}

TEST_F(ArchiveScan, findsWhatWasUnpackedBeforeAndBehindTrouble) {
    OptionValues options = kDefaultLimits;
    options.maxSize = 1000;
    options.maxRatio = 0;
    VoleOptions::set(options);
    const std::string start(1000, 's');
    const ZipMember needle{"needle", kNeedle}, hay{"hay", "hay"}, encrypted{"s", "s", 8, 0, 1},
        liar{"liar", start + start, 8, 0, 0, {}, {}, {}, 10U}, large{"large", start + start};
    know(md5Record(kNeedle, "Needle") + md5Record(start, "Start"));
    const std::string sound = zipOf({hay, needle, hay});
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"behind an encrypted entry, before the walk fails", zipOf({encrypted, needle, encrypted}), "Needle"},
        {"behind a second encrypted entry", zipOf({encrypted, encrypted, needle}), "0"},
        {"cut in the next entry", sound.substr(0, sound.find("PK\1\2") - 20), "Needle"},
        {"in an entry cut to the limit", zipOf({liar}), "Start"},
        {"behind it", zipOf({{"l", start + start + "x", 8, 0, 0, {}, {}, {}, 10U}, needle}), "Start"},
        {"behind an entry that is too large", zipOf({large, needle}), "Needle"},
        {"behind a torn entry", zipOf({kTorn, needle}), "Needle"},
        {"in a ZIP behind one that fails", zipOf({{"a", zipOf({encrypted}), 0}, {"b", sound, 0}}), "Needle"},
    };
    for (const auto& [what, archive, found] : cases) EXPECT_EQ(scan(archive), found) << what;
}

std::function<void()> onLastMember;  // Happens on the line about a member in an unknown method.
int rawLines;

void useLevel(int level) {
    const auto print = [](const char* line) {
        rawLines += std::strstr(line, "scan raw file") != nullptr;
        if (std::strstr(line, "Unknown method") == line) onLastMember();
    };
    VoleDebugger settings{level, print, {}};
    setDebugger(&settings);
}

TEST_F(ArchiveScan, aMemberIsJudgedByWhatHeldWhenItWasComplete) {
    const TempDir with, without, root;
    with.write("a.hdb", md5Record(kNeedle, "Needle"));
    with.write("pattern_assistant.xml", "<r><Spyware><i name='s'/></Spyware></r>");
    std::filesystem::copy(with / "pattern_assistant.xml", without.path());
    const std::string dumps = root.path();
    const std::string archive = zipOf({{"needle", kNeedle}, {"../zip", zipOf({{"in", "in"}})}, {"last", "last", 12}});
    // Ends with the verdict, the lines that come about raw passes, and the dumped files.
    const std::tuple<const char*, const TempDir&, std::string, int, std::function<void()>, std::string> cases[] = {
        {"a set without the signature", with, "", 3, [&] { loadAnew(without); }, "Needle 2"},
        {"a set with it", without, "", 3, [&] { loadAnew(with); }, "0 5"},
        {"dumps wanted too late", without, "", 3, [&] { setDumpPath(dumps.c_str()); }, "0 5 in last"},
        {"dumps wanted before", without, dumps, 3, [] { setDumpPath(""); }, "0 5 needle zip"},
        {"a lower level", without, "", 3, [] { useLevel(1); }, "0 1"},
        {"a higher level", without, "", 1, [] { useLevel(3); }, "0 2"},
    };
    for (const auto& [why, signatures, directory, level, happens, expected] : cases) {
        freeResource();
        ASSERT_EQ(load(signatures), 0);
        setDumpPath(directory.c_str());
        onLastMember = happens;
        rawLines = 0;
        useLevel(level);
        std::string seen = scan(archive);
        seen += " " + std::to_string(rawLines);
        std::set<std::string> dumped;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dumps)) {
            if (entry.is_regular_file()) dumped.insert(entry.path().filename());
        }
        for (const std::string& file : dumped) seen += " " + file;
        EXPECT_EQ(seen, expected) << why;
        std::filesystem::remove_all(root / "sample.unar");
    }
}

}  // namespace
