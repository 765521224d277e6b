// What a lookup of a size or a digest costs with many records, relative to few.
#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benches.h"
#include "Corpus.h"
#include "PatternContainer.h"

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
    std::unique_ptr<PatternContainer> container = std::make_unique<PatternContainer>();
    std::vector<Key> hits;
    std::vector<Key> misses;

    const BmList& list() const { return container->md5List(); }
};

Subject makeSubject(const corpus::Folder& folder, std::uint64_t count) {
    const Md5Records records{count};
    const std::string path = folder / (std::to_string(count) + ".hdb");
    Subject subject{std::to_string(count), std::make_unique<PatternContainer>(), {}, {}};
    corpus::writeHdb(path, records);
    if (subject.container->loadPattern(path) != 0) throw std::runtime_error("loading of " + path);
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

bool hasSize(const BmList& list, const Key& key) { return list.verifyFileSize(key.size); }
bool hasDigest(const BmList& list, const Key& key) { return list.virusFoundMD5(key.digest.data()) != nullptr; }

// For one lookup. Each waits for the answer of the one before: otherwise the processor overlaps them, as it cannot do
// between two files.
template <bool (*Look)(const BmList&, const Key&)>
double secondsPerLookup(const Subject& subject, bool hit) {
    const std::vector<Key>& keys = hit ? subject.hits : subject.misses;
    std::size_t found = 0;
    const double seconds = secondsOf([&] {
        std::size_t previous = hit;
        for (std::size_t i = 0; i < kKeys; ++i) {
            const std::size_t skew = previous ^ static_cast<std::size_t>(hit);  // Always 0, known after the answer.
            previous = Look(subject.list(), keys[i + skew]);
            found += previous;
        }
    });
    if (found != (hit ? kKeys : 0)) throw std::runtime_error("lookups among " + subject.name);
    return seconds / static_cast<double>(kKeys);
}

void compare(const Settings& settings, Report& report, const std::string& what, const Subject& few, const Subject& many,
             const std::function<double(const Subject&)>& secondsFor) {
    const Times times = bestOf(
        settings.quick ? 3 : 9, [&] { return secondsFor(few); }, [&] { return secondsFor(many); });
    report.ratio(what + ", " + many.name + " / " + few.name + " records", times, 3);
}

}  // namespace

void benchLookup(const Settings& settings, Report& report) {
    report.section("Lookups with random keys among many records / among 1,000",
                   "One after the other, each waiting for the last. What grows is the wait for memory: 1,000 records "
                   "fit the first-level cache, 10,000,000 are beyond every cache and most of the address tables.");
    const corpus::Folder folder;
    const Subject few = makeSubject(folder, 1000);
    for (const std::uint64_t count : {1'000'000, 10'000'000}) {
        if (settings.quick && count > 1'000'000) continue;
        const Subject many = makeSubject(folder, count);
        compare(settings, report, "size, hit", few, many, [](auto& s) { return secondsPerLookup<hasSize>(s, true); });
        compare(settings, report, "size, miss", few, many, [](auto& s) { return secondsPerLookup<hasSize>(s, false); });
        compare(settings, report, "digest, hit", few, many,
                [](auto& s) { return secondsPerLookup<hasDigest>(s, true); });
        compare(settings, report, "digest, miss", few, many,
                [](auto& s) { return secondsPerLookup<hasDigest>(s, false); });
    }
}
