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

namespace {

using scene::rarEntry;
using scene::rarOf;
using scene::zipOf;
using ZOV_SPACE::filterOf;
using ZOV_SPACE::kFilterHead;
using ZOV_SPACE::PpmEncoder;
using ZOV_SPACE::RarEncoder;
using enum ZOV_SPACE::VmOperation;

// What one scan may take besides the limits: bytes of address space, and seconds of processor time on a slow machine.
constexpr rlim_t kMemory = rlim_t{448} << 20;
constexpr rlim_t kDisk = rlim_t{64} << 20;  // A scan without limits is to meet a full disk.

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // Such a process needs very much address space, and time.
constexpr rlim_t kSeconds = 600;
#else
constexpr bool kSanitized = false;
constexpr rlim_t kSeconds = 60;
#endif

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

// Deflated zeros, packed in a few levels.
std::string nestedZeros(int depth, std::size_t bytes) {
    std::string content(bytes, '\0');
    for (; depth > 0; --depth) content = zipOf({{"n", content}});
    return content;
}

// As many archives as one level takes, each as large as an entry may be.
std::string fullWorkList(int n) {
    const std::string archive = zipOf({{"r", std::string(1'040'000, 'r'), 0}});
    ZipBuilder zip;
    for (int i = 0; i < 25 * n; ++i) zip.add({"a" + std::to_string(i), archive, 0});
    return zip.archive();
}

// Entries that nobody takes, for their sizes, but that have to be decoded for those behind them.
std::string solidBomb(int n) {
    RarEncoder encoder(29);
    encoder.literal('x');
    for (int i = 0; i < 20'000 * n; ++i) encoder.match(1, 258);
    const std::string first = encoder.finish();
    std::string entries = rarEntry("0", first, encoder.takeEntry().size(), 29, false);
    for (int i = 0; i < 20'000 * n; ++i) encoder.match(1, 258);
    const std::string next = encoder.finish();
    const std::size_t size = encoder.takeEntry().size();
    for (int i = 0; i < 49; ++i) entries += rarEntry(std::to_string(i), next, size, 29, true);
    return rarOf(entries);
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
        entries += rarEntry(std::to_string(i), encoder.finish(), 4 << 20, 29, i > 0);
    }
    return rarOf(entries);
}

// Programs that do not end, over every few bytes.
std::string endlessPrograms(int n) {
    ZOV_SPACE::RarVmAssembler program;
    program.dword(inc, ZOV_SPACE::reg(0)).jump(jmp, 0);
    RarEncoder encoder(29);
    for (int i = 0; i < 400; ++i) {
        encoder.filter(kFilterHead, filterOf(0, 0, 20, program.build()));
        encoder.text("some bytes for one program, and then ");
    }
    const std::string packed = encoder.finish();
    const std::size_t size = encoder.takeEntry().size();
    std::string entries;
    for (int i = 0; i < 10 * n; ++i) entries += rarEntry(std::to_string(i), packed, size, 29, false);
    return rarOf(entries, false);
}

// Very many filters over one long block.
std::string filterFlood(int n) {
    RarEncoder encoder(29);
    const auto program = ZOV_SPACE::standInProgram(ZOV_SPACE::kFilterE8);
    for (int i = 0; i < 1500 * n; ++i) encoder.filter(kFilterHead, filterOf(0, 0, 0x3C000 - 1, program));
    encoder.literal('\xE8');
    for (int i = 0; i < 1750 * n; ++i) encoder.match(1, 258);
    const std::string packed = encoder.finish();
    return rarOf(rarEntry("f", packed, encoder.takeEntry().size(), 29, false));
}

// Entries whose ends have to be searched for, none of which has one.
std::string withoutDescriptors(int n) {
    std::string entries;
    for (int i = 0; i < 1000 * n; ++i) {
        entries += ZipBuilder({{"s", std::string(500, 's'), 0, kNoDescriptor, 8, {}, {}, 0U, 0U}}).entries();
    }
    return entries;
}

// A deflated stream whose end shows only after very many bytes, begun anew by each of many headers.
std::string lookAheadBomb(int n) {
    ZipBuilder zip;
    const std::string zeros(32 << 20, '\0');
    const std::string packed = deflated(zeros);
    for (int i = 0; i < 20 * n; ++i) zip.add({"z", "", 8, kSignedDescriptor, 0, {}, packed});
    return zip.archive();
}

std::string tinyMembers(int n) {
    ZipBuilder zip;
    for (int i = 0; i < n; ++i) zip.add({std::to_string(i), "8 bytes.", 0});
    return zip.archive();
}

// Archives in archives, each with very many members, all of which wait for their turn.
std::string treeOfZips(int n) {
    const std::string leaves = zipOf({{"leaves", tinyMembers(1000)}});
    ZipBuilder zip;
    for (int i = 0; i < 100 * n; ++i) zip.add({"t", leaves});
    return zipOf({{"trunk", zip.archive()}});
}

// Members that are taken, whose model has to be asked for every byte, in archives that are nothing but each other's
// copies and so take no room.
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
    std::string entries;
    for (int i = 0; i < 48; ++i) entries += rarEntry("p", packed, size, 29, false);
    ZipBuilder zip;
    for (int i = 0; i < 40 * n; ++i) zip.add({"r", rarOf(entries, false)});
    return zip.archive();
}

// A directory as long as it can be, of members that are not there.
std::string longDirectory(int n) {
    ZipBuilder zip, directory;
    zip.add({"member", "content"});
    for (int i = 0; i < 32'767 * n; ++i) directory.add({"d", "", 0});
    return zip.entries() + directory.archive().substr(directory.entries().size());
}

std::string joined(int n, std::string (*make)(int i)) {
    std::string all;
    for (int i = 0; i < n; ++i) all += make(i);
    return all;
}

std::string digests(int n) {
    return joined(20'000 * n, [](int i) { return md5Record(std::to_string(i), "Name"); });
}

std::string checkSums(int n) {
    return joined(20'000 * n, [](int i) { return startRecord("start" + std::to_string(i), "Name"); });
}

std::string lineFeeds(int n) { return std::string(static_cast<std::size_t>(n) << 22, '\n'); }

struct Row {
    const char* name;
    std::string (*make)(int n);
    double memory = 512;             // MiB that the larger one may take.
    const char* loadedAs = nullptr;  // A file of signatures, with that end of its name, instead of one to scan.
};

const Row kRows[] = {
    {"flatZipBomb", [](int n) { return nestedZeros(1, static_cast<std::size_t>(n) << 25); }},
    {"nestedZipBomb", [](int n) { return nestedZeros(12, static_cast<std::size_t>(n) << 24); }},
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
    {"digests", digests, 64, ".hdb"},
    {"checkSums", checkSums, 64, ".chk"},
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
        const std::string whole = samples.write("2n", _row.make(2));
        const std::string half = kSanitized ? whole : samples.write("n", _row.make(1));
        expectGrowth(half, whole, kDefaultLimits);
        if (!_row.loadedAs) expectGrowth(half, whole, {0, 0, 0, 50, 0});
    }

private:
    // What the machine does besides may make the larger one take longer, but not each time.
    void expectGrowth(const std::string& half, const std::string& whole, const OptionValues& limits) {
        const Use least = useOf(half, limits);
        Use most = kSanitized ? least : useOf(whole, limits);
        for (int again = 0; again < 2 && !most.isTwice(least); ++again) most = useOf(whole, limits);
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
        setLimits();
        if (_row.loadedAs) {
            _patterns.write("x" + std::string(_row.loadedAs), TempDir::contentOf(path));
            EXPECT_EQ(load(_patterns), 0) << message;
        } else {
            EXPECT_EQ(verdictOf(path), "0");
        }
    }

    static void setLimits() {
        ::malloc_trim(0);
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlimit memory{pages * 4096 + kMemory, RLIM_INFINITY}, time{kSeconds, kSeconds};
        if (!kSanitized) ::setrlimit(RLIMIT_AS, &memory);
        ::setrlimit(RLIMIT_CPU, &time);
        static const ZOV_SPACE::FileSizeLimit disk(kDisk);
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
