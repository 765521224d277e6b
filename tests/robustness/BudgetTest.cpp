// Hostile files of one and of two sizes, each scanned in a process of its own that may use so much memory and time,
// with the default limits and without any. What is twice as large may need twice as much, or as much when a limit ends
// it.
#include <malloc.h>
#include <sys/resource.h>

#include <iostream>

#include "Scene.h"
#include "support/EngineTest.h"
#include "support/FileSizeLimit.h"
#include "support/OwnProcess.h"
#include "support/Process.h"
#include "support/TarRecipe.h"
#include "support/VoleHost.h"

namespace {

using scene::rarEntry;
using scene::rarOf;
using scene::zipOf;
using namespace ZOV_SPACE;
using enum VmOperation;

// What one scan may take besides the limits: bytes of address space, and seconds of processor time on a slow machine.
constexpr rlim_t kMemory = rlim_t{448} << 20;
constexpr rlim_t kDisk = rlim_t{64} << 20;  // A scan without limits is to meet a full disk.

constexpr rlim_t kSeconds = kSanitized ? 600 : 60;

// What a file of twice the size may need more, and differences that are noise.
constexpr double kGrowth = 2.5;
constexpr double kNoiseSeconds = 0.3;
constexpr double kNoiseMemory = 16;

struct Use {
    double seconds;  // Of processor time.
    double memory;   // MiB, the most at any time.

    bool isTwice(const Use& half) const {
        return (seconds <= kGrowth * half.seconds || seconds - half.seconds < kNoiseSeconds) &&
               (memory <= kGrowth * half.memory || memory - half.memory < kNoiseMemory);
    }
};

std::ostream& operator<<(std::ostream& out, const Use& use) {
    return out << use.seconds << " s, " << use.memory << " MiB";
}

std::string repeated(int count, const std::string& piece) {
    std::string all;
    for (int i = 0; i < count; ++i) all += piece;
    return all;
}

// One member, so many times.
ZipBuilder zipOfMany(int count, const ZipMember& member) {
    ZipBuilder zip;
    for (int i = 0; i < count; ++i) zip.add(member);
    return zip;
}

// What the encoder has written, as so many entries.
std::string entriesOf(RarEncoder& encoder, bool solid = false, int count = 1) {
    const std::string packed = encoder.finish();
    const std::size_t size = encoder.takeEntry().size();
    std::string entries;
    for (int i = 0; i < count; ++i) entries += rarEntry("e", packed, size, 29, solid);
    return entries;
}

// Deflated zeros, packed in a few levels.
std::string nestedZeros(int depth, int bytes) {
    std::string content(static_cast<std::size_t>(bytes), '\0');
    for (; depth > 0; --depth) content = zipOf({{"n", content}});
    return content;
}

// As many archives as one level takes, each as large as an entry may be.
std::string fullWorkList(int n) {
    return zipOfMany(25 * n, {"a", zipOf({{"r", std::string(1'040'000, 'r'), 0}}), 0}).archive();
}

// Entries that nobody takes, for their sizes, but that have to be decoded for those behind them.
std::string solidBomb(int n) {
    RarEncoder encoder(29);
    encoder.literal('x');
    const auto addRun = [&] {
        for (int i = 0; i < 20'000 * n; ++i) encoder.match(1, 258);
    };
    addRun();
    const std::string first = entriesOf(encoder);
    addRun();
    return rarOf(first + entriesOf(encoder, true, 49));
}

std::string ppmBomb(int n) {
    PpmEncoder encoder(16, 128 * n);
    encoder.text(scene::words(20'000));
    for (int i = 0; i < 15'000 * n; ++i) {  // Runs of 259 bytes.
        for (const int byte : {PpmEncoder::kEscape, 5, 255}) encoder.put(static_cast<unsigned char>(byte));
    }
    const std::string packed = encoder.finish();
    return rarOf(rarEntry("p", packed, 16 << 20, 29, false) + rarEntry("q", packed, 900'000, 29, false));
}

// As solidBomb(), from a model that has to be asked for every single byte.
std::string solidPpmBomb(int n) {
    PpmEncoder encoder(2, 1);
    std::string entries;
    for (int i = 0; i < 9 * n; ++i) {
        if (i > 0) encoder.nextEntry();
        encoder.text(std::string(4 << 20, 'a'));
        entries += rarEntry("p", encoder.finish(), 4 << 20, 29, i > 0);
    }
    return rarOf(entries);
}

// Programs that do not end, over every few bytes.
std::string endlessPrograms(int n) {
    RarVmAssembler program;
    program.dword(inc, reg(0)).jump(jmp, 0);
    RarEncoder encoder(29);
    for (int i = 0; i < 400; ++i) {
        encoder.filter(kFilterHead, filterOf(0, 0, 20, program.build()));
        encoder.text("some bytes for one program, and then ");
    }
    return rarOf(entriesOf(encoder, false, 10 * n), false);
}

// Very many filters over one long block.
std::string filterFlood(int n) {
    RarEncoder encoder(29);
    const auto program = standInProgram(kFilterE8);
    for (int i = 0; i < 1500 * n; ++i) encoder.filter(kFilterHead, filterOf(0, 0, 0x3C000 - 1, program));
    encoder.literal('\xE8');
    for (int i = 0; i < 1750 * n; ++i) encoder.match(1, 258);
    return rarOf(entriesOf(encoder));
}

// Entries whose ends have to be searched for, none of which has one.
std::string withoutDescriptors(int n) {
    return zipOfMany(1000 * n, {"s", std::string(500, 's'), 0, kNoDescriptor, 8, {}, {}, 0U, 0U}).entries();
}

// A deflated stream whose end shows only after very many bytes, begun anew by each of many headers.
std::string lookAheadBomb(int n) {
    return zipOfMany(20 * n, {"z", "", 8, kSignedDescriptor, 0, {}, deflated(std::string(32 << 20, '\0'))}).archive();
}

std::string tinyMembers(int n) { return zipOfMany(n, {"tiny", "8 bytes.", 0}).archive(); }

// Archives in archives, each with very many members, all of which wait for their turn.
std::string treeOfZips(int n) {
    return zipOf({{"trunk", zipOfMany(100 * n, {"t", zipOf({{"leaves", tinyMembers(1000)}})}).archive()}});
}

// Members that are taken, whose model has to be asked for every byte, and behind them the next archive of that kind: as
// deep as may be, and each adds little to the file, because it is packed like the one around it.
std::string ppmChain(int n) {
    PpmEncoder encoder(16, 1);
    // Noise, so that it does not seem to be packed too well.
    const std::string line = scene::words(1200);
    std::string noise;
    for (unsigned i = 0, random = 1; i < 2500; ++i) noise += static_cast<char>((random = random * 69069 + 1) >> 24);
    encoder.text(noise);
    std::size_t size = noise.size();
    for (; size + line.size() < (1 << 20); size += line.size()) encoder.text(line);
    const std::string packed = encoder.finish();
    std::string members, chain;
    for (int i = 0; i < 48; ++i) members += rarEntry("p", packed, size, 29, false);
    for (int i = 0; i < 12 * n; ++i) {
        chain = zipOf({{"r", rarOf(members + scene::RarBuilder::stored("next", chain), false)}});
    }
    return chain;
}

// A directory as long as it can be, of members that are not there.
std::string longDirectory(int n) {
    const ZipBuilder directory = zipOfMany(32'767 * n, {"d", "", 0});
    return ZipBuilder({{"member", "content"}}).entries() + directory.archive().substr(directory.entries().size());
}

// As many records as a directory can count, all of one member; with other sizes each, or not.
std::string manyRecordsOfOne(int n, bool differ) {
    const ZipMember member{"m", std::string(1 << 20, 'm')};
    const std::string entry = ZipBuilder({member}).entries();
    std::string directory;
    for (int i = 0; i < 32'767 * n; ++i) {
        ZipMember listed{"m", "", 8, kNoDescriptor, 0, {}, {}, static_cast<std::uint32_t>(entry.size()), 1U << 20};
        if (differ) listed.method = 0, listed.packed = static_cast<std::uint32_t>(i);
        directory += ZipBuilder().addAs({}, listed).archive().substr(32, 47);
    }
    return entry + directory + ZipBuilder({member}).archive().substr(entry.size() + 47, 12) +
           littleEndian(directory.size(), 4) + littleEndian(entry.size(), 4) + std::string(2, '\0');
}

// Members that each are all that follows: a stored block has the next one's header in it. One bit in the headers keeps
// what is unpacked from being taken for an archive again.
std::string overlappingMembers(int n) {
    constexpr int kReserved = 0x8000;
    const int count = 100 * n;
    const std::string kernel = deflated(std::string(1 << 20, 'k'));
    ZipBuilder zip;
    for (int i = 0; i < count; ++i) {
        const int behind = count - 1 - i;
        const auto packed = static_cast<std::uint32_t>(behind * 36) + static_cast<std::uint32_t>(kernel.size());
        const std::string quote("\0\x1f\0\xe0\xff", 5);
        zip.add({"o",
                 "",
                 8,
                 kNoDescriptor,
                 kReserved,
                 {},
                 behind ? quote : kernel,
                 packed,
                 static_cast<std::uint32_t>(behind * 31 + (1 << 20))});
    }
    return zip.archive();
}

// Marks of headers that are none, or that make sense and lead to data that does not.
std::string falseMarks(int n, const std::string& mark) { return "?" + repeated(250'000 * n, mark); }

std::string plausibleMark(int method) {
    return ZipBuilder({{"c", "", method, kNoDescriptor, 0, {}, "", 100'000U, 100'000U}}).entries();
}

// Behind the header of a RAR archive.
std::string falseBlocks(int n, const std::string& block) {
    return RarBuilder::marker() + RarBuilder::archive() + falseMarks(n, block);
}

// An entry's header whose check-sum is wrong, and which reaches as far as one can.
std::string brokenEntry() {
    RarFile entry;
    entry.name = "b", entry.headerSize = 0xFFFF, entry.broken = true;
    return RarBuilder::file(entry);
}

// Entries that each reach over all that follow, and that cannot be decoded, or to something that no signature is about:
// that depends on the name.
std::string overlappingEntries(int n) {
    RarFile entry;
    entry.name = "e", entry.method = 0x33, entry.unpVer = 29, entry.unpackedSize = 1 << 20;
    std::string all;
    for (int behind = 5'000 * n; behind > 0; --behind) {
        entry.packedSize = static_cast<std::uint32_t>(33 * behind);
        all += RarBuilder::file(entry);
    }
    return rarOf(all);
}

// Files of 64 MiB, all of them holes.
std::string tarOfHoles(int n) {
    return repeated(4 * n, tarEntry({{"name", "h"}, {"type", "S"}, {"at483", "00400000000"}}));
}

std::string records(int n, std::string (*make)(std::string_view content, const std::string& name)) {
    std::string all;
    for (int i = 0; i < 20'000 * n; ++i) all += make("start" + std::to_string(i), "Name");
    return all;
}

std::string lineFeeds(int n) { return std::string(static_cast<std::size_t>(n) << 22, '\n'); }

struct Row {
    const char* name;
    std::string (*make)(int n);
    double memory = 512;             // MiB that the larger one may take.
    const char* loadedAs = nullptr;  // A file of signatures, with that end of its name, instead of one to scan.
    bool isDeep = false;             // Scanned through vole.h.
};

const Row kRows[] = {
    {"flatZipBomb", [](int n) { return nestedZeros(1, n << 25); }},
    {"nestedZipBomb", [](int n) { return nestedZeros(12, n << 24); }},
    {"fullWorkList", fullWorkList},
    {"lookAheadZipBomb", lookAheadBomb},
    {"storedWithoutDescriptors", withoutDescriptors},
    {"tinyMembers", [](int n) { return tinyMembers(10'000 * n); }, 64},
    {"treeOfZips", treeOfZips, 200},
    {"longDirectory", longDirectory},
    {"solidRarBomb", solidBomb},
    {"largestPpmHeap", ppmBomb},
    {"solidPpmBomb", solidPpmBomb},
    {"ppmChain", ppmChain},
    {"endlessVmPrograms", endlessPrograms},
    {"filterFlood", filterFlood},
    {"manyRecordsOfOne", [](int n) { return manyRecordsOfOne(n, false); }, 96, nullptr, true},
    {"manyReadingsOfOne", [](int n) { return manyRecordsOfOne(n, true); }, 96, nullptr, true},
    {"overlappingMembers", overlappingMembers, 96, nullptr, true},
    {"marksAlone", [](int n) { return falseMarks(4 * n, "PK\3\4"); }, 64, nullptr, true},
    {"marksOfEnds", [](int n) { return falseMarks(4 * n, "PK\5\6"); }, 64, nullptr, true},
    {"plausibleStoredMarks", [](int n) { return falseMarks(n, plausibleMark(0)); }, 64, nullptr, true},
    {"plausibleDeflatedMarks", [](int n) { return "?" + repeated(75'000 * n, plausibleMark(8)); }, 64, nullptr, true},
    {"rarMarksAlone", [](int n) { return falseBlocks(4 * n, RarBuilder::marker()); }, 64, nullptr, true},
    {"emptyRarArchives", [](int n) { return falseBlocks(n, falseBlocks(0, "")); }, 64, nullptr, true},
    {"brokenRarEntries", [](int n) { return falseBlocks(n, brokenEntry()); }, 64, nullptr, true},
    {"overlappingRarEntries", overlappingEntries, 96, nullptr, true},
    {"gzipBomb", [](int n) { return gzipOf(std::string(std::size_t{1} << (26 + n), '\0')); }, 96, nullptr, true},
    {"tinyGzipMembers", [](int n) { return repeated(500'000 * n, gzipOf("")); }, 64, nullptr, true},
    {"tarHeaders",
     [](int n) {
         return repeated(50'000 * n, tarEntry({{"name", "empty"}}));
     },
     64, nullptr, true},
    {"damagedTarHeaders",
     [](int n) {
         return repeated(50'000 * n, tarEntry({{"sum", "none"}}));
     },
     64, nullptr, true},
    {"tarOfHoles", tarOfHoles, 96, nullptr, true},
    {"digests", [](int n) { return records(n, md5Record); }, 64, ".hdb"},
    {"checkSums", [](int n) { return records(n, startRecord); }, 64, ".chk"},
    {"emptyDigestLines", lineFeeds, 64, ".hdb"},
    {"emptyCheckSumLines", lineFeeds, 64, ".chk"},
};

class Budget : public EngineTest {
public:
    explicit Budget(const Row& row) : _row(row) { scene::writePatterns(_patterns, "One"); }

    void TestBody() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "Scans on one thread; the thread sanitizer would make them take many minutes.";
#endif
        const std::string half = samples.write("n", _row.make(1));
        const std::string whole = kSanitized ? half : samples.write("2n", _row.make(2));
        expectGrowth(half, whole, kDefaultLimits);
        if (!_row.loadedAs && !kSanitized) expectGrowth(half, whole, {0, 0, 0, 50, 0});
    }

private:
    // What the machine does besides may make the larger one take longer, or the smaller one less, but not each time.
    void expectGrowth(const std::string& half, const std::string& whole, const OptionValues& limits) {
        Use least = useOf(half, limits);
        Use most = kSanitized ? least : useOf(whole, limits);
        for (int again = 0; again < 4 && !most.isTwice(least); ++again) {
            least = useOf(half, limits);
            most = useOf(whole, limits);
        }
        EXPECT_TRUE(kSanitized || most.memory <= _row.memory) << most;
        EXPECT_TRUE(most.isTwice(least)) << least << "; of twice the size " << most;
        std::cout << "[   BUDGET ] " << _row.name << (limits.maxEntries ? "" : " without limits") << ": "
                  << std::filesystem::file_size(whole) << " bytes, " << most << ", half of it " << least << "\n";
    }

    // Within the budgets, in a process of its own.
    Use useOf(const std::string& path, const OptionValues& limits) {
        rusage used{};
        inOwnProcess([&] { spend(path, limits); }, &used);
        const auto micros = static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
        return {static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + micros / 1e6,
                static_cast<double>(used.ru_maxrss) / 1024};
    }

    void spend(const std::string& path, const OptionValues& limits) {
        EXPECT_EQ(_row.loadedAs ? 0 : load(_patterns), 0) << message;
        VoleOptions::set(limits);
        ::malloc_trim(0);
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlimit memory{pages * 4096 + kMemory, RLIM_INFINITY}, time{kSeconds, kSeconds};
        if (!kSanitized) ::setrlimit(RLIMIT_AS, &memory);
        ::setrlimit(RLIMIT_CPU, &time);
        static const FileSizeLimit disk(kDisk);
        if (_row.loadedAs) {
            _patterns.write("x" + std::string(_row.loadedAs), TempDir::contentOf(path));
            EXPECT_EQ(load(_patterns), 0) << message;
        } else if (_row.isDeep) {
            scanDeep(path, limits);
        } else {
            EXPECT_EQ(verdictOf(path), "0");
        }
    }

    void scanDeep(const std::string& path, const OptionValues& limits) {
        vole_limits own = VOLE_LIMITS_INIT;
        if (!limits.maxEntries) own = {sizeof own, 0, 0, 0, 0, 0, 0, 0};
        const VoleScanner scanner = scannerOf(loadedSet(_patterns.path()), &own);
        vole_outcome outcome = VOLE_OUTCOME_FAILED;
        EXPECT_EQ(vole_scan_path(scanner.get(), path.c_str(), &outcome), VOLE_OK);
        EXPECT_NE(outcome, VOLE_OUTCOME_FOUND);
    }

    const Row& _row;
    TempDir _patterns;
};

const bool kRegistered = [] {
    for (const Row& row : kRows) {
        testing::RegisterTest("Budgets", row.name, nullptr, nullptr, __FILE__, __LINE__,
                              [&row] { return new Budget(row); });
    }
    return true;
}();

}  // namespace
