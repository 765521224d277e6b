// What a scan says of each kind of content: outcomes, findings and reasons, for what is seen and for what is not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "rar/RarBlock.h"
#include "robustness/Scene.h"
#include "support/StringBuffer.h"
#include "support/TarRecipe.h"
#include "support/VoleHost.h"

namespace {

using namespace std::string_literals;
using scene::kHay;
using scene::kNeedle;
using scene::zipOf;
using ZOV_SPACE::RarBuilder;
using ZOV_SPACE::RarFile;
using ZOV_SPACE::RarFileBlock;

std::string rar(const std::vector<std::string>& blocks, unsigned flags = 0) {
    std::string bytes = RarBuilder::marker() + RarBuilder::archive(flags);
    for (const std::string& block : blocks) bytes += block;
    return bytes + RarBuilder::end();
}

// A stored entry whose check-sum is right.
std::string entry(const std::string& name, const std::string& data, unsigned flags = 0, unsigned method = 0x30,
                  unsigned version = 20) {
    RarFile file;
    file.name = name, file.data = data, file.flags = flags, file.method = method, file.unpVer = version;
    file.fileCrc = crc32Of(data);
    return RarBuilder::file(file);
}

class Outcomes : public testing::Test {
protected:
    Outcomes() {
        patterns.write("a.hdb", md5Record(kNeedle, "Needle") + md5Record("harmless", "Fa-Harmless") +
                                    md5Record("both\n", "First") + md5Record("both\n", "Second"));
        patterns.write("b.chk", startRecord("sum of this text", "Sum"));
        patterns.write("pattern_assistant.xml", "<r><FalseAlarm><i name='fa-harmless'/></FalseAlarm></r>");
        set = loadedSet(patterns.path());
    }

    std::string scan(const std::string& content, const vole_limits& limits = VOLE_LIMITS_INIT, unsigned flags = 0) {
        const VoleScanner scanner = scannerOf(set, &limits);
        EXPECT_EQ(vole_scanner_set_flags(scanner.get(), flags), VOLE_OK);
        return toldOf(scanner.get(), content);
    }

    std::string scanPath(const std::string& path, const vole_limits& limits = VOLE_LIMITS_INIT, unsigned flags = 0) {
        const VoleScanner scanner = scannerOf(set, &limits);
        EXPECT_EQ(vole_scanner_set_flags(scanner.get(), flags), VOLE_OK);
        EXPECT_EQ(vole_scan_path(scanner.get(), path.c_str(), nullptr), VOLE_OK);
        return told(scanner.get());
    }

    TempDir patterns, files;
    VoleSet set;
};

TEST_F(Outcomes, tellWhatIsSeenAndWhatIsNot) {
    const ZipMember hay{"hay", kHay}, needle{"n", kNeedle};
    const std::string packed = deflated(scene::words(300)), sevenZip = "7z\xBC\xAF\x27\x1C\0\4"s + std::string(24, 'x');
    const std::string tar =
        tarEntry({{"name", "hay"}, {"content", kHay}}) + tarEntry({{"name", "n"}, {"content", kNeedle}});
    const std::string zip = zipOf({needle});
    const ZipMember secret{"s", kHay, 8, 0, 1}, torn{"t", "text", 8, 0, 0, {}, "\xff\xff\xff\xff"s};
    std::string broken = entry("b", kHay);
    broken[0] = static_cast<char>(~broken[0]);  // The header's check-sum.
    const struct {
        const char* why;
        std::string content;
        const char* answer;
    } rows[] = {
        {"nothing", "", "clean"},
        {"no archive", kHay, "clean"},
        {"raw", kNeedle, "found Needle=md5,raw"},
        {"normalised", "  THE NEEDLE in\r\nthe haystack", "found Needle=md5,normalised"},
        {"a check-sum", "sum of this text and more", "found Sum=checksum,raw,0"},
        {"a false alarm is no finding", "harmless", "clean Fa-Harmless!=md5,raw"},
        {"behind a false alarm", zipOf({{"f", "harmless"}, needle}), "found Fa-Harmless!=md5,raw@f Needle=md5,raw@n"},
        {"seen whole", zipOf({hay, {"d/", "", 0}, {"in", zipOf({hay})}}), "clean"},
        {"deep", zipOf({{"a", zipOf({hay, {"b", rar({entry("c", kNeedle)})}})}}), "found Needle=md5,raw@a/b/c"},
        {"the name's own bytes", zipOf({{"/x\n\xff", kNeedle}}), "found Needle=md5,raw@/x\n\xff"},
        {"compressed", gzipOf(kNeedle), "found Needle=md5,raw@data"},
        {"a compressed archive", gzipOf(tar), "found Needle=md5,raw@data/n"},
        {"its name from that of the file", zipOf({{"d/x.tgz", gzipOf(tar)}}), "found Needle=md5,raw@d/x.tgz/x.tar/n"},
        {"a ZIP behind compressed data", gzipOf(kHay) + zipOf({needle}), "found Needle=md5,raw@n"},
        {"a ZIP in a tar archive is its member's", tarEntry({{"name", "z"}, {"content", zipOf({needle})}}),
         "found Needle=md5,raw@z/n"},
        {"one behind it", tarEntry({{"name", "hay"}, {"content", kHay}}) + std::string(1024, '\0') + zipOf({needle}),
         "found Needle=md5,raw@n"},
        {"one in a member's padding", tarEntry({{"name", "hay"}, {"content", kHay}}).replace(600, zip.size(), zip),
         "found Needle=md5,raw@n"},
        {"one in a head", gzipOf(kHay).replace(3, 1, "\4").insert(10, littleEndian(zip.size(), 2) + zip),
         "found Needle=md5,raw@n"},
        {"compressed and cut", gzipOf(kNeedle).substr(0, 40), "found Needle=md5,raw@data truncated@data"},
        {"a check-sum of gzip", gzipOf(kHay).replace(29, 1, "?"), "incomplete checksum@data"},
        {"encrypted", zipOf({secret}), "incomplete encrypted@s"},
        {"a finding wins", zipOf({secret, {"in", zipOf({secret, needle})}}),
         "found Needle=md5,raw@in/n encrypted@s encrypted@in/s"},
        {"encrypted RAR", rar({entry("e", kHay, 4), entry("b", kHay)}), "incomplete encrypted@e"},
        {"encrypted RAR headers", zipOf({{"r", rar({}, 0x80)}}), "incomplete encrypted@r"},
        {"a method", zipOf({{"m", kHay, 19}, {"b", "BZh91AY&SY", 19}, hay}), "incomplete method@m method@b"},
        {"what the method left as it was", zipOf({{"m", kNeedle, 19}}), "found Needle=md5,raw@m method@m"},
        {"a method of RAR", rar({entry("m", "packed", 0, 0x33, 15)}), "incomplete method@m"},
        {"a format", sevenZip, "incomplete unsupported"},
        {"a format in a member", zipOf({{"7", sevenZip, 0}, hay}), "incomplete unsupported@7"},
        {"a format that only begins so", "7z\xBC\xAF", "clean"},
        {"RAR 5", "Rar!\x1a\7\1\0"s + std::string(40, 'x'), "incomplete unsupported"},
        {"volumes", rar({entry("a", kHay, 1), entry("b", kHay, 2)}), "incomplete volume@a volume@b"},
        {"a volume of ZIP", "PK\7\10" + ZipBuilder({hay}).entries(), "incomplete volume"},
        {"damaged", zipOf({torn, needle}), "found Needle=md5,raw@n damaged@t"},
        {"damaged RAR header", zipOf({{"r", rar({broken})}}), "incomplete damaged@r/b"},
        {"truncated", ZipBuilder({hay}).entries(), "incomplete truncated"},
        {"truncated in a member", zipOf({{"in", zipOf({hay}).substr(0, 40), 0}}),
         "incomplete truncated@in/hay truncated@in"},
        {"truncated RAR", rar({entry("a", kHay)}).substr(0, 60), "incomplete truncated@a checksum@a"},
        {"a check-sum of ZIP", zipOf({{"c", kHay, 8, 0, 0, {}, {}, {}, {}, 1U}}), "incomplete checksum@c"},
        {"one behind the data", zipOf({{"c", kHay, 8, kSignedDescriptor, 0, {}, {}, {}, {}, 1U}}),
         "incomplete checksum@c"},
        {"a check-sum of RAR", zipOf({{"r", rar({RarBuilder::stored("c", kHay)})}}), "incomplete checksum@r/c"},
    };
    for (const auto& row : rows) EXPECT_EQ(scan(row.content), row.answer) << row.why;
    EXPECT_EQ(scan(gzipOf(kNeedle), VOLE_LIMITS_INIT, VOLE_SCAN_SHALLOW), "incomplete unsupported");
}

// Names that archivers give, and what keeps others from being read.
TEST_F(Outcomes, volumesAreReadWhereTheyLieBesideAPath) {
    RarFile part;
    part.name = "n", part.flags = RarFileBlock::kSplitAfter, part.data = kNeedle.substr(0, 9);
    part.unpackedSize = static_cast<std::uint32_t>(kNeedle.size());
    const std::string first = RarBuilder::marker() + RarBuilder::archive(1) + RarBuilder::file(part);
    part.flags = RarFileBlock::kSplitBefore, part.data = kNeedle.substr(9), part.fileCrc = crc32Of(kNeedle);
    const std::string second = RarBuilder::marker() + RarBuilder::archive(1) + RarBuilder::file(part);
    const std::string joined = "found Needle=md5,raw@n", alone = "incomplete volume@n";
    vole_limits small = VOLE_LIMITS_INIT;
    small.max_content = second.size() - 1;
    const struct {
        const char *first, *second;
        std::string answer;
        vole_limits limits = VOLE_LIMITS_INIT;
        unsigned flags = 0;
    } rows[] = {
        {"a.part1.rar", "a.part2.rar", joined},
        {"b.PART001.RAR", "b.PART002.RAR", joined},
        {"c.rar", "c.r00", joined},
        {"D.RAR", "D.R00", joined},
        {"e1.rar", "e1.r00", joined},
        {"f.part1.rar", "f.r00", alone},
        {"g.part2.rar", "g.part3.rar", alone},
        {"h.cbr", "h.r00", alone},
        {"i.rar", "i.r00", alone, small},
        {"j.rar", "j.r00", alone, VOLE_LIMITS_INIT, VOLE_SCAN_SHALLOW},
    };
    for (const auto& row : rows) {
        const std::string path = files.write(row.first, first);
        files.write(row.second, second);
        EXPECT_EQ(scanPath(path, row.limits, row.flags), row.answer) << path;
    }
    const std::string path = files.write("k.rar", first);
    EXPECT_EQ(::symlink("c.r00", (files.path() / "k.r00").c_str()), 0);
    EXPECT_EQ(scanPath(path), alone);
}

TEST_F(Outcomes, limitsAreToldWhereTheyAreMet) {
    const ZipMember hay{"hay", kHay}, large{"large", std::string(5000, 'l')}, needle{"n", kNeedle};
    const ZipMember liar{"liar", std::string(5000, 'l'), 8, 0, 0, {}, {}, {}, 10U};
    const std::string nested = zipOf({{"a", zipOf({{"b", zipOf({needle})}})}});
    const struct {
        const char* why;
        std::string content;
        vole_limits limits;
        const char* answer;
    } rows[] = {
        {"content", kNeedle, limits(&vole_limits::max_content, 10), "incomplete size-limit"},
        {"just as large", kNeedle, limits(&vole_limits::max_content, static_cast<unsigned>(kNeedle.size())),
         "found Needle=md5,raw"},
        {"member", zipOf({large, hay}), limits(&vole_limits::max_member, 4999), "incomplete size-limit@large"},
        {"just as large", zipOf({large}), limits(&vole_limits::max_member, 5000), "clean"},
        {"as it comes out", zipOf({liar, needle}), limits(&vole_limits::max_member, 4999),
         "found Needle=md5,raw@n size-limit@liar"},
        {"total", zipOf({large, {"in", zipOf({large})}}), limits(&vole_limits::max_total, 6000),
         "incomplete total-limit"},
        {"members", zipOf({hay, hay, needle}), limits(&vole_limits::max_members, 2), "incomplete member-limit"},
        {"just as many", zipOf({hay, hay, needle}), limits(&vole_limits::max_members, 3), "found Needle=md5,raw@n"},
        {"depth", nested, limits(&vole_limits::max_depth, 2), "incomplete depth-limit@a/b"},
        {"deep enough", nested, limits(&vole_limits::max_depth, 3), "found Needle=md5,raw@a/b/n"},
        {"ratio", zipOf({large}), limits(&vole_limits::max_ratio, 3), "incomplete ratio-limit@large"},
        {"a bomb", gzipOf(large.content), limits(&vole_limits::max_ratio, 3), "incomplete ratio-limit@data"},
        {"ratio as it comes out", zipOf({liar}), limits(&vole_limits::max_ratio, 3), "incomplete ratio-limit@liar"},
    };
    for (const auto& row : rows) EXPECT_EQ(scan(row.content, row.limits), row.answer) << row.why;
    vole_limits none{};
    none.struct_size = sizeof none;
    EXPECT_EQ(scan(nested, none), "found Needle=md5,raw@a/b/n") << "0 is no limit, everywhere";
}

TEST_F(Outcomes, allMatchesAreReportedOnRequest) {
    const std::string content = zipOf({{"n", kNeedle}, {"in", zipOf({{"both", "both\n"}})}});
    EXPECT_EQ(scan(content), "found Needle=md5,raw@n");
    EXPECT_EQ(scan(content, VOLE_LIMITS_INIT, VOLE_SCAN_ALL_MATCHES),
              "found Needle=md5,raw@n Needle=md5,normalised@n Second=md5,raw@in/both First=md5,raw@in/both "
              "Second=md5,normalised@in/both "
              "First=md5,normalised@in/both");
}

TEST_F(Outcomes, eventsComeInOrderAndMayEndTheScan) {
    const VoleScanner scanner = scannerOf(set);
    const std::string content = zipOf({{"s", kHay, 8, 0, 1}, {"a", kHay}, {"in", zipOf({{"n", kNeedle}})}});
    Ear ear;
    vole_scanner_set_events(scanner.get(), Ear::hear, &ear);
    EXPECT_EQ(toldOf(scanner.get(), content), "found Needle=md5,raw@in/n encrypted@s");
    EXPECT_EQ(ear.heard, "?s >a <a >in <in >in/n !in/n <in/n ");

    ear.react = [](const vole_event& event) { return event.type == VOLE_EVENT_MEMBER_DONE ? 1 : 0; };
    EXPECT_EQ(toldOf(scanner.get(), content), "incomplete encrypted@s cancelled");
    ear.react = [&](const vole_event&) {
        EXPECT_EQ(vole_scan_buffer(scanner.get(), "x", 1, nullptr), VOLE_E_BUSY);
        vole_scanner_cancel(scanner.get());
        return 0;
    };
    EXPECT_EQ(toldOf(scanner.get(), content), "incomplete encrypted@s cancelled");
    ear.react = [](const vole_event&) { return 0; };
    EXPECT_EQ(toldOf(scanner.get(), kNeedle), "incomplete cancelled") << "until it is armed again";
    vole_scanner_rearm(scanner.get());
    EXPECT_EQ(toldOf(scanner.get(), kNeedle), "found Needle=md5,raw");

    vole_limits hurry = VOLE_LIMITS_INIT;
    hurry.max_time_ms = 20;
    const VoleScanner hurried = scannerOf(set, &hurry);
    ear.react = [](const vole_event&) { return ::usleep(30'000); };
    vole_scanner_set_events(hurried.get(), Ear::hear, &ear);
    EXPECT_EQ(toldOf(hurried.get(), content), "incomplete encrypted@s time-limit");
}

// What is known of a content, then its bytes, read in two pieces, of which the second could be longer.
std::string shown(const vole_content& content) {
    const auto size = static_cast<std::size_t>(content.size), half = size / 2;
    std::string bytes(size + 1, '?');
    EXPECT_EQ(vole_content_read(&content, 0, bytes.data(), half), std::ptrdiff_t(half));
    EXPECT_EQ(vole_content_read(&content, half, &bytes[half], half + 2), std::ptrdiff_t(size - half));
    EXPECT_EQ(vole_content_read(&content, size, bytes.data(), 1), 0);
    bytes.resize(size);
    const bool isRaw = content.form == VOLE_FORM_RAW;
    return std::to_string(content.packed_size) + content.method + (isRaw ? "" : " normalised") +
           (content.is_packed ? " packed" : "") + " " + "nrw"[content.checksum] + ":" + bytes;
}

TEST_F(Outcomes, contentsAreShownWithWhatIsKnownOfThem) {
    const ZipMember wrong{"c", "CC", 0, 0, 0, {}, {}, {}, {}, 1U}, unknown{"d", "dd", 77};
    const std::string zip = zipOf({{"a", "aa", 0}, {"b", "bb"}, wrong, unknown});
    const std::string content = gzipOf(tarEntry({{"name", "z"}, {"content", zip}}));
    std::string contents;
    Ear ear;
    ear.react = [&](const vole_event& event) {
        EXPECT_EQ(event.content != nullptr, event.type == VOLE_EVENT_CONTENT);
        if (event.content && event.member.count == 3) contents += shown(*event.content) + " ";
        return 0;
    };
    const VoleScanner scanner = scannerOf(set);
    vole_scanner_set_events(scanner.get(), Ear::hear, &ear);
    for (const unsigned flags : {0U, VOLE_SCAN_CONTENTS}) {
        EXPECT_EQ(vole_scanner_set_flags(scanner.get(), flags), VOLE_OK);
        toldOf(scanner.get(), content);
        EXPECT_EQ(contents.empty(), flags == 0);
    }
    EXPECT_EQ(contents,
              "2stored r:aa 2stored normalised r:aa\n 4deflate r:bb 4deflate normalised r:bb\n "
              "2stored w:CC 2stored normalised w:cc\n 2 packed n:dd 2 normalised packed n:dd\n ");
}

TEST_F(Outcomes, membersWithoutBytesAreTold) {
    using ZOV_SPACE::RarBuilder;
    const auto tar = [](const char* name, const char* type) { return tarEntry({{"name", name}, {"type", type}}); };
    const std::string rar = RarBuilder::marker() + RarBuilder::archive() + RarBuilder::stored("f", "", 0xE0) +
                            RarBuilder::stored("e", "", 0x60) + RarBuilder::end();
    const std::tuple<std::string, const char*, const char*> rows[] = {
        {zipOf({{"f/", "", 0}, {"e", "", 0}}), "= = +f/ -e ", "= = +f/ -e "},
        {tar("f", "5") + tar("e", "2"), "= = +f -e ", "= = ? "},
        {rar, "= +f -e ", "= +f -e "},
    };
    const VoleScanner scanner = scannerOf(set);
    for (const auto& [content, deep, shallow] : rows) {
        for (const auto& [flags, told] :
             {std::pair(VOLE_SCAN_CONTENTS, deep), {VOLE_SCAN_CONTENTS | VOLE_SCAN_SHALLOW, shallow}}) {
            Ear ear;
            vole_scanner_set_events(scanner.get(), Ear::hear, &ear);
            EXPECT_EQ(vole_scanner_set_flags(scanner.get(), flags), VOLE_OK);
            toldOf(scanner.get(), content);
            EXPECT_EQ(ear.heard, told);
        }
    }
}

TEST_F(Outcomes, workThatNoLimitCoversIsBounded) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "minutes of work for one thread";
#endif
    // Each member's end is looked for in all that follows, and not found.
    ZipBuilder zip;
    for (int i = 0; i < 6000; ++i) zip.add({"endless", std::string(64, 'x'), 0, kNoDescriptor, 8, {}, {}, 0U, 0U});
    vole_limits patient = VOLE_LIMITS_INIT;
    patient.max_time_ms = 0;
    const VoleScanner scanner = scannerOf(set, &patient);
    Ear ear;
    bool spent = false;
    ear.react = [&](const vole_event& event) {
        spent = spent || (event.reason && event.reason->code == VOLE_REASON_WORK_BUDGET);
        return 0;
    };
    vole_scanner_set_events(scanner.get(), Ear::hear, &ear);
    toldOf(scanner.get(), zip.entries());
    EXPECT_TRUE(spent);
    const vole_result* const result = vole_scanner_result(scanner.get());
    EXPECT_EQ(vole_result_outcome(result), VOLE_OUTCOME_INCOMPLETE);
    EXPECT_EQ(vole_result_reason_count(result), 1000U);
    EXPECT_GT(vole_result_counters(result)->reasons, 1000U);
}

TEST_F(Outcomes, everySourceGivesTheSameAnswer) {
    const VoleScanner scanner = scannerOf(set);
    const std::string content = zipOf({{"stored", scene::words(400'000), 0}, {"n", kNeedle}});
    const std::string path = files.write("f", content), expected = "found Needle=md5,raw@n";
    EXPECT_EQ(vole_scan_path(scanner.get(), path.c_str(), nullptr), VOLE_OK);
    EXPECT_EQ(told(scanner.get()), expected);
    const int fd = ::open(path.c_str(), O_RDONLY);
    ::lseek(fd, 7, SEEK_SET);
    EXPECT_EQ(vole_scan_fd(scanner.get(), fd, nullptr), VOLE_OK);
    EXPECT_EQ(told(scanner.get()), expected);
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 7);
    ::close(fd);
    EXPECT_EQ(scanStream(scanner.get(), content), VOLE_OK);
    EXPECT_EQ(told(scanner.get()), expected);
    const vole_counters& counters = *vole_result_counters(vole_scanner_result(scanner.get()));
    EXPECT_EQ(counters.bytes_read, content.size());
    EXPECT_EQ(vole_scan_path(scanner.get(), "/proc/version", nullptr), VOLE_OK);
    EXPECT_GT(counters.bytes_read, 0U) << "a file whose size is not known";
}

// What a host is told of each file.
struct Account {
    vole_scanner* scanner;
    std::size_t last;  // That it wants.
    std::string heard = {};
    std::vector<std::string> told = {};

    static int hear(void* context, const vole_event* event) {
        return static_cast<Account*>(context)->heard.append(" " + std::to_string(event->bytes_done)), 0;
    }
    static int enter(void* context, std::size_t index, vole_error error, vole_outcome outcome) {
        Account& of = *static_cast<Account*>(context);
        of.heard += " " + std::to_string(vole_result_counters(vole_scanner_result(of.scanner))->bytes_read) + " of " +
                    std::to_string(index) + ", " + vole_error_text(error) + ", " + vole_outcome_name(outcome);
        of.told.push_back(::told(of.scanner) + std::exchange(of.heard, ""));
        return index == of.last;
    }
};

TEST_F(Outcomes, filesGivenTogetherAreToldAsEachAlone) {
    ::mkfifo((files / "fifo").c_str(), 0600);
    std::vector<std::string> names{files / "gone", files.path(), files / "fifo", "/proc/version",
                                   "/sys/devices/system/cpu/online"};  // Shorter than the system says.
    for (const std::string& content : {""s, kNeedle, "sum of this text and more"s, "harmless"s, "x"s, "both\n"s,
                                       std::string(65536, 's'), std::string(65537, 'l'), zipOf({{"n", kNeedle}})}) {
        names.insert(names.end(), 6, files.write(std::to_string(names.size()), content));
    }
    names.insert(names.end(), 70, names[10]);
    names.insert(names.end(), names.begin(), names.begin() + 60);
    std::vector<const char*> paths;
    for (const std::string& name : names) paths.push_back(name.c_str());
    vole_limits small = VOLE_LIMITS_INIT;
    small.max_content = 20;
    for (const unsigned flags : {0U, VOLE_SCAN_ALL_MATCHES, VOLE_SCAN_SHALLOW}) {
        const VoleScanner scanner = scannerOf(set, flags == VOLE_SCAN_SHALLOW ? &small : nullptr);
        vole_scanner_set_flags(scanner.get(), flags);
        Account alone{scanner.get(), names.size() - 2}, together = alone;
        vole_scanner_set_events(scanner.get(), Account::hear, &alone);
        for (std::size_t i = 0; i <= alone.last; ++i) {
            vole_outcome outcome = VOLE_OUTCOME_CLEAN;
            const vole_error error = vole_scan_path(scanner.get(), paths[i], &outcome);
            Account::enter(&alone, i, error, outcome);
        }
        vole_scanner_set_events(scanner.get(), Account::hear, &together);
        EXPECT_EQ(vole_scan_paths(scanner.get(), paths.data(), paths.size(), Account::enter, &together), VOLE_OK);
        EXPECT_EQ(together.told, alone.told) << flags;
    }
    const VoleScanner scanner = scannerOf(set);
    const auto cancel = [](void* of, std::size_t, vole_error, vole_outcome) {
        vole_scanner_cancel(static_cast<vole_scanner*>(of));
        return vole_scan_path(static_cast<vole_scanner*>(of), "x", nullptr) == VOLE_E_BUSY ? 0 : 1;
    };
    EXPECT_EQ(vole_scan_paths(scanner.get(), &paths[6], 6, cancel, scanner.get()), VOLE_OK);
    EXPECT_EQ(told(scanner.get()), "incomplete cancelled");
    EXPECT_EQ(vole_scan_paths(scanner.get(), paths.data(), 0, nullptr, nullptr), VOLE_E_ARGUMENT);
    paths[9] = nullptr;
    EXPECT_EQ(vole_scan_paths(scanner.get(), paths.data(), 10, cancel, nullptr), VOLE_E_ARGUMENT);
}

TEST_F(Outcomes, whatCannotBeScannedFailsWithItsOwnCode) {
    const VoleScanner scanner = scannerOf(set);
    ::mkfifo((files / "fifo").c_str(), 0600);
    const auto endless = [](void*, void* buffer, std::size_t size) -> std::ptrdiff_t {
        std::memset(buffer, 'x', size);
        return static_cast<std::ptrdiff_t>(size);
    };
    vole_outcome outcome = VOLE_OUTCOME_CLEAN;
    EXPECT_EQ(vole_scan_path(scanner.get(), (files / "gone").c_str(), &outcome), VOLE_E_NOT_FOUND);
    EXPECT_EQ(outcome, VOLE_OUTCOME_FAILED);
    EXPECT_EQ(told(scanner.get()), "failed: No such file or directory");
    EXPECT_EQ(vole_scan_path(scanner.get(), (files / "fifo").c_str(), &outcome), VOLE_E_NOT_FILE);
    EXPECT_EQ(vole_scan_path(scanner.get(), files.path().c_str(), &outcome), VOLE_E_NOT_FILE);
    EXPECT_EQ(vole_scan_path(scanner.get(), nullptr, &outcome), VOLE_E_ARGUMENT);
    EXPECT_EQ(vole_scan_path(nullptr, "x", &outcome), VOLE_E_ARGUMENT);
    EXPECT_EQ(vole_scan_fd(scanner.get(), -1, &outcome), VOLE_E_ARGUMENT);
    EXPECT_EQ(vole_scan_buffer(scanner.get(), nullptr, 1, &outcome), VOLE_E_ARGUMENT);
    EXPECT_EQ(scanStream(scanner.get(), "", true), VOLE_E_IO);
    vole_limits small = VOLE_LIMITS_INIT;
    small.max_content = 1'000'000;
    const VoleScanner limited = scannerOf(set, &small);
    EXPECT_EQ(vole_scan_stream(limited.get(), endless, nullptr, &outcome), VOLE_OK);
    EXPECT_EQ(told(limited.get()), "incomplete size-limit");
}

TEST_F(Outcomes, aFileThatShrinksMeanwhileIsNotClean) {
    const std::string path =
        files.write("f", zipOf({{"a", scene::words(400'000), 0}, {"b", scene::words(400'000), 0}}));
    const VoleScanner scanner = scannerOf(set);
    Ear ear;
    ear.react = [&](const vole_event& event) {
        return event.type == VOLE_EVENT_MEMBER_DONE ? ::truncate(path.c_str(), 1'500'000) : 0;
    };
    vole_scanner_set_events(scanner.get(), Ear::hear, &ear);
    vole_scan_path(scanner.get(), path.c_str(), nullptr);
    EXPECT_NE(told(scanner.get()).find(" io"), std::string::npos) << told(scanner.get());
}

TEST_F(Outcomes, structuresOfOtherVersionsAreReadAsFarAsTheyAreKnown) {
    vole_scanner* scanner = nullptr;
    struct {
        vole_limits known = VOLE_LIMITS_INIT;
        std::uint64_t later = 0;
    } limits;
    limits.known.struct_size = sizeof limits;
    EXPECT_EQ(vole_scanner_new(set.get(), &limits.known, &scanner), VOLE_OK);
    vole_scanner_free(scanner);
    limits.later = 1;
    EXPECT_EQ(vole_scanner_new(set.get(), &limits.known, &scanner), VOLE_E_ARGUMENT);
    EXPECT_EQ(scanner, nullptr);
    vole_limits earlier{};
    earlier.struct_size = offsetof(vole_limits, max_member);  // max_content only: unlimited here.
    EXPECT_EQ(scan(zipOf({{"large", std::string(300, 'l')}, {"n", kNeedle}}), earlier), "found Needle=md5,raw@n");
    EXPECT_EQ(vole_scanner_new(nullptr, nullptr, &scanner), VOLE_E_ARGUMENT);
    const VoleScanner valid = scannerOf(set);
    EXPECT_EQ(vole_scanner_set_flags(valid.get(), 1U << 31), VOLE_E_ARGUMENT);

    const vole_limits defaults = VOLE_LIMITS_INIT;
    vole_limits written{};
    vole_limits_init(&written, offsetof(vole_limits, max_total));
    EXPECT_EQ(written.struct_size, offsetof(vole_limits, max_total));
    EXPECT_EQ(written.max_member, defaults.max_member);
    EXPECT_EQ(written.max_total, 0U) << "no more than it was given";
    vole_limits_init(&written, sizeof written);
    EXPECT_EQ(std::memcmp(&written, &defaults, sizeof written), 0);
}

TEST_F(Outcomes, limitsHoldFromTheNextScanOn) {
    const VoleScanner scanner = scannerOf(set);
    vole_limits small = VOLE_LIMITS_INIT;
    small.max_content = 2;
    vole_outcome outcome;
    for (const auto& [limits, expected] : {std::pair{&small, VOLE_OUTCOME_INCOMPLETE}, {nullptr, VOLE_OUTCOME_CLEAN}}) {
        EXPECT_EQ(vole_scanner_set_limits(scanner.get(), limits), VOLE_OK);
        EXPECT_EQ(vole_scan_buffer(scanner.get(), "hay", 3, &outcome), VOLE_OK);
        EXPECT_EQ(outcome, expected);
    }
    small.struct_size = 0;
    EXPECT_EQ(vole_scanner_set_limits(scanner.get(), &small), VOLE_E_ARGUMENT);
    EXPECT_EQ(vole_scanner_set_limits(nullptr, nullptr), VOLE_E_ARGUMENT);
}

TEST_F(Outcomes, manyScannersShareSetsThatAreSwapped) {
    TempDir other;
    other.write("a.hdb", md5Record(kNeedle, "Other"));
    std::atomic<vole_signatures*> current = set.get();
    const VoleSet second = loadedSet(other.path());
    std::vector<scene::Content> contents = scene::contents();
    std::atomic<bool> over = false;
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (std::size_t turn = i; !over; ++turn) {
                VoleSet mine(vole_signatures_ref(current));
                const VoleScanner scanner = scannerOf(mine);
                mine.reset();
                const std::string answer =
                    toldOf(scanner.get(), zipOf({{"x", kNeedle}, {"y", contents[turn % 9].bytes}}));
                EXPECT_TRUE(answer == "found Needle=md5,raw@x" || answer == "found Other=md5,raw@x") << answer;
            }
        });
    }
    for (int swaps = 0; swaps < 500; ++swaps) {
        current = swaps % 2 ? set.get() : second.get();
        ::usleep(1000);
    }
    over = true;
}

}  // namespace
