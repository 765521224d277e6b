// Hostile files, each scanned in a process of its own that may use so much memory and time, with the default limits
// and without any.
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

// Bytes of address space that the process has now.
rlim_t addressSpace() {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * 4096;
}

// Of memory in use, in MiB; begins anew with resetPeak().
std::string peak() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (word != "VmHWM:" && status >> word) continue;
    status >> word;
    return std::to_string(std::stol(word) / 1024);
}

void resetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

// Of processor time, so far.
double seconds() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

// Deflated zeros, packed in a few levels.
std::string nestedZeros(int depth, std::size_t bytes) {
    std::string content(bytes, '\0');
    for (; depth > 0; --depth) content = zipOf({{"n", content}});
    return content;
}

// As many archives as one level takes, each as large as an entry may be.
std::string fullWorkList() {
    const std::string archive = zipOf({{"r", std::string(1'040'000, 'r'), 0}});
    ZipBuilder zip;
    for (int i = 0; i < 50; ++i) zip.add({"a" + std::to_string(i), archive, 0});
    return zip.archive();
}

// Entries that nobody takes, for their sizes, but that have to be decoded for those behind them.
std::string solidBomb() {
    RarEncoder encoder(29);
    encoder.literal('x');
    for (int i = 0; i < 40'000; ++i) encoder.match(1, 258);
    const std::string first = encoder.finish();
    std::string entries = rarEntry("0", first, encoder.takeEntry().size(), 29, false);
    for (int i = 0; i < 40'000; ++i) encoder.match(1, 258);
    const std::string next = encoder.finish();
    const std::size_t size = encoder.takeEntry().size();
    for (int i = 0; i < 49; ++i) entries += rarEntry(std::to_string(i), next, size, 29, true);
    return rarOf(entries);
}

std::string ppmBomb(int megabytes) {
    PpmEncoder encoder(16, megabytes);
    encoder.text(scene::words(20'000));
    for (int i = 0; i < 30'000; ++i) {  // Runs of 259 bytes.
        for (const int byte : {PpmEncoder::kEscape, 5, 255}) encoder.put(static_cast<unsigned char>(byte));
    }
    const std::string packed = encoder.finish();
    return rarOf(rarEntry("p", packed, 16 << 20, 29, false) + rarEntry("q", packed, 900'000, 29, false));
}

// As solidBomb(), from a model that has to be asked for every single byte.
std::string solidPpmBomb() {
    PpmEncoder encoder(2, 1);
    std::string entries;
    for (int i = 0; i < 17; ++i) {
        if (i > 0) encoder.nextEntry();
        encoder.text(std::string(4 << 20, 'a'));
        entries += rarEntry(std::to_string(i), encoder.finish(), 4 << 20, 29, i > 0);
    }
    return rarOf(entries);
}

// Programs that do not end, over every few bytes.
std::string endlessPrograms() {
    ZOV_SPACE::RarVmAssembler program;
    program.dword(inc, ZOV_SPACE::reg(0)).jump(jmp, 0);
    RarEncoder encoder(29);
    for (int i = 0; i < 400; ++i) {
        scene::addFilter(encoder, program.build(), 20);
        encoder.text("some bytes for one program, and then ");
    }
    const std::string packed = encoder.finish();
    const std::size_t size = encoder.takeEntry().size();
    std::string entries;
    for (int i = 0; i < 20; ++i) entries += rarEntry(std::to_string(i), packed, size, 29, false);
    return rarOf(entries, false);
}

// Very many filters over one long block.
std::string filterFlood() {
    RarEncoder encoder(29);
    const auto program = ZOV_SPACE::standInProgram(ZOV_SPACE::kFilterE8);
    for (int i = 0; i < 3000; ++i) scene::addFilter(encoder, program, 0x3C000 - 1);
    encoder.literal('\xE8');
    for (int i = 0; i < 3500; ++i) encoder.match(1, 258);
    const std::string packed = encoder.finish();
    return rarOf(rarEntry("f", packed, encoder.takeEntry().size(), 29, false));
}

// Entries whose ends have to be searched for, none of which has one.
std::string withoutDescriptors() {
    std::string entries;
    for (int i = 0; i < 2000; ++i) {
        entries += ZipBuilder({{"s", std::string(500, 's'), 0, kNoDescriptor, 8, {}, {}, 0U, 0U}}).entries();
    }
    return entries;
}

// A deflated stream whose end shows only after very many bytes, begun anew by each of many headers.
std::string lookAheadBomb() {
    ZipBuilder zip;
    const std::string zeros(32 << 20, '\0');
    const std::string packed = deflated(zeros);
    for (int i = 0; i < 40; ++i) zip.add({"z", "", 8, kSignedDescriptor, 0, {}, packed});
    return zip.archive();
}

const std::pair<const char*, std::string (*)()> kFiles[] = {
    {"flat ZIP bomb", [] { return nestedZeros(1, 64 << 20); }},
    {"nested ZIP bomb", [] { return nestedZeros(12, 32 << 20); }},
    {"full work list", fullWorkList},
    {"look-ahead ZIP bomb", lookAheadBomb},
    {"stored without descriptors", withoutDescriptors},
    {"solid RAR bomb", solidBomb},
    {"largest PPM heap", [] { return ppmBomb(256); }},
    {"solid PPM bomb", solidPpmBomb},
    {"endless VM programs", endlessPrograms},
    {"filter flood", filterFlood},
};

void expectWithinBudget(const std::string& what, const std::string& path, const OptionValues& limits) {
    ::malloc_trim(0);
    std::string message, virus;
    VoleOptions::set(limits);
    const rlimit memory{addressSpace() + kMemory, RLIM_INFINITY}, time{kSeconds, kSeconds};
    if (!kSanitized) ::setrlimit(RLIMIT_AS, &memory);
    ::setrlimit(RLIMIT_CPU, &time);
    const ZOV_SPACE::FileSizeLimit disk(kDisk);
    resetPeak();
    const std::string peakBefore = peak();
    const double before = seconds();
    EXPECT_EQ(scanFile(path.c_str(), virus, message), 0) << what << ": " << message;
    std::cout << "[   BUDGET ] " << what << ": " << std::filesystem::file_size(path) << " bytes, " << seconds() - before
              << " s, peak " << peak() << " MiB, before " << peakBefore << " MiB\n";
}

TEST(Budgets, everyScanEndsWithinThem) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "Scans on one thread; the thread sanitizer would make them take many minutes.";
#endif
    const TempDir patterns, files;
    scene::writePatterns(patterns, "One");
    for (const auto& [name, make] : kFiles) {
        const std::string path = files.write(name, make());
        for (const bool limited : {true, false}) {
            inOwnProcess([&] {
                std::string message;
                ASSERT_EQ(init(patterns.path().c_str(), message), 0);
                expectWithinBudget(name + std::string(limited ? "" : " without limits"), path,
                                   limited ? kDefaultLimits : OptionValues{0, 0, 0, 50, 0});
            });
        }
    }
}

}  // namespace
