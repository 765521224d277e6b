// What a lookup of a size or a digest costs with many records, relative to few.
#include <array>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Benches.h"
#include "Corpus.h"
#include "Signatures.h"

namespace {

using corpus::Md5Records;

constexpr std::size_t kKeys = 1 << 18;
constexpr std::uint64_t kUnused = std::uint64_t{1} << 36;  // Numbers from here on belong to no record.

struct Key {
    std::array<unsigned char, 16> digest;
    std::uint32_t size;
};

// A loaded list, and keys that it has or has not.
struct Subject {
    std::string name;
    std::unique_ptr<vole_signatures> set = std::make_unique<vole_signatures>();
    std::vector<Key> hits = {};
    std::vector<Key> misses = {};

    const BmList& list() const { return set->patterns.md5List(); }
};

Subject makeSubject(const corpus::Folder& folder, std::uint64_t count) {
    const Md5Records records{count};
    const std::string path = folder / (std::to_string(count) + ".hdb");
    Subject subject{std::to_string(count)};
    corpus::writeHdb(path, records);
    if (subject.set->patterns.loadPattern(path) != 0) throw std::runtime_error("loading of " + path);
    std::filesystem::remove(path);
    for (std::uint64_t i = 0; subject.hits.size() < kKeys; ++i) {
        const std::uint64_t hit = corpus::randomNumber(30, i) % count;
        subject.hits.push_back({records.digest(hit), records.size(hit)});
    }
    for (std::uint64_t i = kUnused; subject.misses.size() < kKeys; ++i) {
        const std::uint32_t size = records.size(i);
        if (!subject.list().verifyFileSize(size)) subject.misses.push_back({records.digest(i), size});
    }
    return subject;
}

// The same records out of a file that they were compiled to, and how long that takes to be ready.
Subject compiledFrom(const Subject& parsed, const corpus::Folder& folder, Report& report) {
    const std::string path = folder / (parsed.name + ".vset");
    parsed.set->id.assign(32, '0');
    if (vole_signatures_save(parsed.set.get(), path.c_str()) != VOLE_OK) throw std::runtime_error("writing " + path);
    vole_signatures* mapped = nullptr;
    double seconds = 1;
    for (int round = 0; round < 5; ++round) {
        vole_signatures_unref(std::exchange(mapped, nullptr));
        seconds = std::min(seconds, secondsOf([&] { vole_signatures_load(path.c_str(), nullptr, &mapped); }));
    }
    if (!mapped) throw std::runtime_error("mapping " + path);
    report.value("compiled set of " + parsed.name + " records, until it is ready", 1e3 * seconds, "ms", Bound::atMost,
                 20);
    std::filesystem::remove(path);
    return {parsed.name + ", compiled", std::unique_ptr<vole_signatures>(mapped), parsed.hits, parsed.misses};
}

// How the lookups that are timed follow each other.
enum class Pace {
    overlapping,  // One right after the other: the processor starts the next ones while the first waits for memory.
    chained,      // Each begins when the answer of the last is known.
    coldCaches,   // As chained, but a few at a time, and 64 MiB of other memory are read before: as when files are
                  // scanned.
};

constexpr std::pair<Pace, const char*> kPaces[] = {
    {Pace::overlapping, "overlapping"}, {Pace::chained, "chained"}, {Pace::coldCaches, "cold caches"}};

using Look = bool (*)(const BmList&, const Key&);

bool hasSize(const BmList& list, const Key& key) { return list.verifyFileSize(key.size); }
bool hasDigest(const BmList& list, const Key& key) { return list.virusFoundMD5(key.digest.data()) != nullptr; }

// Looks up `count` keys from the given one on and returns how many were found. All are or none is, as `hit` says.
template <Look look, bool chained>
std::size_t lookUp(const BmList& list, const std::vector<Key>& keys, std::size_t first, std::size_t count, bool hit) {
    std::size_t found = 0;
    std::size_t skew = 0;  // Always 0, but the processor knows only after the answer.
    for (std::size_t i = 0; i < count; ++i) {
        const bool answer = look(list, keys[first + i + skew]);
        if constexpr (chained) skew = static_cast<std::size_t>(answer != hit);
        found += answer;
    }
    return found;
}

void sweepCaches() {
    static const std::vector<std::uint64_t> other((64 << 20) / sizeof(std::uint64_t), 1);
    if (std::accumulate(other.begin(), other.end(), std::uint64_t{0}) == 0) throw std::logic_error("cache sweep");
}

// For one lookup.
template <Look look>
double secondsPerLookup(const Subject& subject, bool hit, Pace pace, int round) {
    constexpr std::size_t kColdKeys = 8;
    constexpr std::size_t kSweeps = 25;
    const std::vector<Key>& keys = hit ? subject.hits : subject.misses;
    std::size_t found = 0;
    std::size_t count = kKeys;
    double seconds = 0;
    if (pace == Pace::coldCaches) {
        count = kSweeps * kColdKeys;
        const std::size_t start = static_cast<std::size_t>(round) * count;
        for (std::size_t sweep = 0; sweep < kSweeps; ++sweep) {
            const std::size_t first = start + sweep * kColdKeys;
            sweepCaches();
            // The keys themselves are no part of the lookup.
            for (std::size_t i = 0; i < kColdKeys; ++i) __builtin_prefetch(&keys[first + i]);
            seconds += secondsOf([&] { found += lookUp<look, true>(subject.list(), keys, first, kColdKeys, hit); });
        }
    } else {
        seconds = secondsOf([&] {
            found = pace == Pace::chained ? lookUp<look, true>(subject.list(), keys, 0, kKeys, hit)
                                          : lookUp<look, false>(subject.list(), keys, 0, kKeys, hit);
        });
    }
    if (found != (hit ? count : 0)) throw std::runtime_error("lookups among " + subject.name);
    return seconds / static_cast<double>(count);
}

template <Look look>
void compare(const Settings& settings, Report& report, const std::string& what, const Subject& few, const Subject& many,
             double target = 3) {
    for (const bool hit : {true, false}) {
        for (const auto& [pace, paceName] : kPaces) {
            Times times;
            for (int round = 0; round < (settings.quick ? 3 : 9); ++round) {
                const double reference = secondsPerLookup<look>(few, hit, pace, round);
                times.add(reference, secondsPerLookup<look>(many, hit, pace, round));
            }
            const std::string row = what + (hit ? ", hit, " : ", miss, ") + many.name + ", " + paceName;
            report.ratio(row, times, target);
        }
    }
}

}  // namespace

void benchLookup(const Settings& settings, Report& report) {
    report.section(
        "Lookups with random keys among many records / among 1,000",
        "overlapping: the processor starts the next ones while the first waits for memory. chained: each "
        "begins when the last has answered. cold caches: as chained, eight at a time after reading 64 MiB of "
        "other memory, the pace of a scan. What grows is the wait for memory: 1,000 records fit the "
        "first-level cache, 10,000,000 exceed every cache and the processor's table of page addresses.");
    const corpus::Folder folder;
    const Subject few = makeSubject(folder, 1000);
    for (const std::uint64_t count : {1'000'000, 10'000'000}) {
        if (settings.quick && count > 1'000'000) continue;
        const Subject many = makeSubject(folder, count);
        compare<hasSize>(settings, report, "size", few, many);
        compare<hasDigest>(settings, report, "digest", few, many);
        const Subject compiled = compiledFrom(many, folder, report);
        compare<hasSize>(settings, report, "against the parsed set: size", many, compiled, 1.1);
        compare<hasDigest>(settings, report, "against the parsed set: digest", many, compiled, 1.1);
    }
}
