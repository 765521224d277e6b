// From an archive to records on the work list, and to what a scan reports of them.
#include "Unarchive.h"

#include <malloc.h>

#include <cstring>
#include <functional>
#include <set>
#include <tuple>
#include <vector>

#include "support/CapturedLog.h"
#include "support/Content.h"
#include "support/EngineTest.h"
#include "support/SignatureText.h"
#include "support/StringBuffer.h"
#include "support/ZipBuilder.h"

namespace {

using namespace std::string_literals;

struct Opened {
    int result = 0;
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
    opened.result = unarchiveOneFile(options, list, record);
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

std::string zipOfMany(int directories, int files) {
    ZipBuilder zip;
    for (int i = 0; i < directories; ++i) zip.add({"d/", "", 0});
    for (int i = 0; i < files; ++i) zip.add({std::to_string(i), "small"});
    return zip.archive();
}

// An entry of 1000 stored bytes that announces others.
ZipMember saying(std::uint32_t packed, std::uint32_t unpacked) {
    return {"e", std::string(1000, 'e'), 0, kNoDescriptor, 0, {}, {}, packed, unpacked};
}

TEST(Unarchive, entriesAreTakenUpToTheLimits) {
    const auto with = [](int OptionValues::*limit, int value, OptionValues options = kDefaultLimits) {
        options.*limit = value;
        return options;
    };
    using O = OptionValues;
    const OptionValues anyRatio = with(&O::maxRatio, 0), anySize = with(&O::maxSize, 0, anyRatio);
    const std::string given = "Unarchive Exception: ";
    const std::string lost = "\nZip walk ended behind <e>: neither an entry nor the directory follows";
    // Ends with how many entries are taken, and the message, if any.
    const std::tuple<const char*, std::string, OptionValues, std::size_t, std::string> cases[] = {
        {"60 files", zipOfMany(0, 60), kDefaultLimits, 50, given + "Reach the level entries limit [50]."},
        {"50 files", zipOfMany(0, 50), kDefaultLimits, 50, ""},
        {"directories count", zipOfMany(49, 2), kDefaultLimits, 1, given + "Reach the level entries limit [50]."},
        {"any number per level", zipOfMany(0, 101), with(&O::maxLevelEntries, 0), 100,
         given + "Reach the entries limit [100]."},
        {"at the entries limit", zipOfMany(0, 100), with(&O::maxLevelEntries, 0), 100, ""},
        {"any number", zipOfMany(0, 120), with(&O::maxEntries, 0, with(&O::maxLevelEntries, 0)), 120, ""},
        {"entries limit before size", zipOf({{"a", "A"}, saying(1U << 30, 1)}), with(&O::maxEntries, 1), 1,
         given + "Reach the entries limit [1]."},
        {"ratio 250", zipOf({saying(1000, 250'999)}), kDefaultLimits, 1, ""},
        {"ratio 251", zipOf({saying(1000, 251'000), {"b", "B"}}), kDefaultLimits, 1, "Overratio entry: [251] > [250]"},
        {"size before ratio", zipOf({saying(1, 1'048'577)}), kDefaultLimits, 0,
         "Oversize entry(usize): [1048577] > [1048576]" + lost},
        {"largest", zipOf({saying(1000, 1'048'576)}), anyRatio, 1, ""},
        {"too large", zipOf({saying(1000, 1'048'577), {"b", "B"}}), anyRatio, 1,
         "Oversize entry(usize): [1048577] > [1048576]"},
        {"packed largest", zipOf({saying(1'048'576, 1)}), kDefaultLimits, 1, lost.substr(1)},
        {"packed too large", zipOf({saying(1'048'577, 1)}), kDefaultLimits, 0,
         "Oversize entry(size): [1048577] > [1048576]" + lost},
        {"4 GiB", zipOf({saying(1000, 0xFFFFFFFFU)}), anyRatio, 0, "Oversize entry(usize): [-1] > [1048576]"},
        {"any size", zipOf({saying(1000, 0xFFFFFFFFU), {"b", "B"}}), anySize, 2, ""},
        {"no archives", zipOf({{"a", "A"}}), with(&O::maxDepth, 0), 0, ""},
        {"packed into nothing", zipOf({{"a", "", 0, 0, 0, {}, {}, {}, 5U}}), kDefaultLimits, 1, ""},
        {"descriptor's sizes", zipOf({{"a", std::string(9000, 'a'), 0, 16}}), with(&O::maxSize, 8999), 0,
         "Oversize entry(size): [9000] > [8999]"},
    };
    for (const auto& [what, archive, options, taken, message] : cases) {
        SCOPED_TRACE(what);
        const Opened opened = open(archive, options);
        EXPECT_EQ(opened.names.size(), taken);
        EXPECT_EQ(opened.messages, message.empty() ? "" : message + "\n");
        EXPECT_EQ(opened.result, message.starts_with(given) ? VOLE_SCAN_FAILED : 0);
    }
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
    EXPECT_EQ(opened.result, 0);
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
    const std::string archive = zipOfMany(0, kRecords);
    const _st_ArchEntry record{std::make_unique<ZOV_SPACE::StringBuffer>(archive), 0, ContentName("f")};
    VoleDebugger everything{3, [](const char*) {}, {}}, nothing{0, nullptr, {}};  // Held lines count.
    setDebugger(&everything);
    WorkList list;
    const std::size_t before = ::mallinfo2().uordblks;
    EXPECT_EQ(unarchiveOneFile({0, 0, 0, 50, 0}, list, record), 0);
    EXPECT_LE(::mallinfo2().uordblks - before, kRecords * 512U);
    setDebugger(&nothing);
    EXPECT_EQ(list.size(), std::size_t{kRecords});
}

TEST(Unarchive, namesAreDerivedFromTheArchives) {
    const std::string x512(512, 'x'), p4080(4080, 'p');
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"a.zip", "b/c", "a.zip.unar/b/c"},
        {"a.zip", "//b//c", "a.zip.unar/b//c"},
        {"a.zip", "", "a.zip.unar/1"},
        {"a.zip", "///", "a.zip.unar/1"},
        {"a.zip", "b\0c"s, "a.zip.unar/b"},
        {"a.zip", "\0c"s, "a.zip.unar/1"},
        {"a.zip", "../b%s", "a.zip.unar/../b%s"},
        {p4080, "tenletters", p4080 + ".unar/tenletters"},
        {p4080, "elevenchars", p4080.substr(1) + ".unar/elevenchars"},
        {p4080, x512, p4080.substr(502) + ".unar/" + x512},
    };
    for (const auto& [parent, entry, name] : cases) {
        const Opened opened = open(zipOf({{"first", "1"}, {"d/", "", 0}, {entry, "2"}}), kDefaultLimits, parent);
        ASSERT_EQ(opened.names.size(), 2U);
        EXPECT_EQ(opened.names[1], name);
    }
}

class ArchiveScan : public EngineTest {
protected:
    void know(const std::string& records) {
        const TempDir patterns;
        patterns.write("a.hdb", records);
        ASSERT_EQ(load(patterns), 0);
    }
};

const std::string kNeedle = "the needle in the haystack";

// The content in a ZIP, that in a ZIP, and so on.
std::string nested(int depth, const std::string& content) {
    return depth == 0 ? content : zipOf({{"n", nested(depth - 1, content), depth % 2 ? 8 : 0}});
}

TEST_F(ArchiveScan, findsWhatIsNestedUpToTheDepthLimit) {
    const std::string eicar = "X5O!P%@AP[4\\PZX54(P^)7CC)7}$"s + "EICAR-STANDARD-ANTIVIRUS-TEST-FILE!$H+H*";
    know(md5Record(eicar, "Eicar"));
    EXPECT_EQ(scan(nested(2, eicar)), "Eicar");
    for (const int limit : {0, 1, 3, 50}) {
        OptionValues options = kDefaultLimits;
        options.maxDepth = limit;
        VoleOptions::set(options);
        EXPECT_EQ(scan(nested(limit, eicar)), "Eicar");
        EXPECT_EQ(scan(nested(limit + 1, eicar)), "0");
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
    ZipBuilder many;
    for (int i = 0; i < 60; ++i) many.add(i == 49 ? needle : hay);
    const std::string sound = zipOf({hay, needle, hay});
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"sound", sound, "Needle"},
        {"the last of those that are taken", many.archive(), "Needle"},
        {"behind an encrypted entry", zipOf({encrypted, needle}), "Needle"},
        {"before the walk fails", zipOf({encrypted, needle, encrypted}), "Needle"},
        {"behind a second encrypted entry", zipOf({encrypted, encrypted, needle}), "0"},
        {"cut in the next entry", sound.substr(0, sound.find("PK\1\2") - 20), "Needle"},
        {"in an entry cut to the limit", zipOf({liar}), "Start"},
        {"behind it", zipOf({{"l", start + start + "x", 8, 0, 0, {}, {}, {}, 10U}, needle}), "Start"},
        {"behind an entry that is too large", zipOf({large, needle}), "Needle"},
        {"behind a torn entry", zipOf({kTorn, needle}), "Needle"},
        {"in a ZIP behind one that fails", zipOf({{"a", zipOf({encrypted}), 0}, {"b", sound, 0}}), "Needle"},
        {"nowhere", zipOf({hay, hay}), "0"},
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
