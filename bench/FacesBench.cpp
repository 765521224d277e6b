// The C interface against the first one, on the same contents by the same signatures: one core is behind both, so
// reports, limits and check-sums of members are what the difference consists of. And deep scans against shallow ones.
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "ArchiveCorpus.h"
#include "Benches.h"
#include "Corpus.h"
#include "Engine.h"
#include "RarPacker.h"
#include "vole.h"

namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

constexpr double kTarget = 1.03;
constexpr double kDeepTarget = 1.05;
constexpr double kTogetherTarget = 0.85, kUnlistedTarget = 1.01;

// The set of a folder, and one scanner.
class Library {
public:
    Library(const std::string& patterns, std::uint32_t flags) {
        vole_signatures* signatures = nullptr;
        if (vole_signatures_load(patterns.c_str(), nullptr, &signatures) != VOLE_OK) {
            throw std::runtime_error("cannot load " + patterns);
        }
        vole_scanner* scanner = nullptr;
        vole_error error = vole_scanner_new(signatures, nullptr, &scanner);
        vole_signatures_unref(signatures);
        _scanner.reset(scanner);
        if (error == VOLE_OK) error = vole_scanner_set_flags(scanner, flags);
        if (error != VOLE_OK) throw std::runtime_error(vole_error_text(error));
    }

    // Members of formats that are not opened count as clean, as the first interface has it.
    void scanCleanFile(const std::string& path) const {
        vole_outcome outcome;
        if (vole_scan_path(_scanner.get(), path.c_str(), &outcome) != VOLE_OK || outcome == VOLE_OUTCOME_FOUND) {
            throw std::runtime_error("scan of " + path + ": " + vole_outcome_name(outcome));
        }
    }

    // By one call.
    void scanCleanFiles(const std::vector<const char*>& paths) const {
        const auto count = [](void* clean, std::size_t, vole_error error, vole_outcome outcome) {
            *static_cast<std::size_t*>(clean) += error == VOLE_OK && outcome != VOLE_OUTCOME_FOUND;
            return 0;
        };
        std::size_t clean = 0;
        vole_scan_paths(_scanner.get(), paths.data(), paths.size(), count, &clean);
        if (clean != paths.size()) throw std::runtime_error("scan of many files");
    }

private:
    struct Free {
        void operator()(vole_scanner* scanner) const { vole_scanner_free(scanner); }
    };

    std::unique_ptr<vole_scanner, Free> _scanner;
};

class Faces {
public:
    // The first interface with limits that are no stricter than the C interface's.
    Faces(const corpus::Folder& folder, const Settings& settings, Report& report)
        : _patterns(folder.sub("patterns")), _rounds(settings.quick ? 10 : 40), _report(report) {
        corpus::writeHdb(fs::path(_patterns) / "bench.hdb", {10'000U, corpus::Sizes::likeRealFiles});
        corpus::writeChk(fs::path(_patterns) / "bench.chk", {"", false, 0, 0x10000}, 10'000);
        corpus::writeFile(fs::path(_patterns) / "voleeng.ini",
                          "MaxUnarEntries = 0\nMaxUnarRatio = 0\nMaxUnarLevelEntries = 0\nMaxUnarSize = 268435456\n");
        loadEngine(_patterns);
        _shallow = std::make_unique<Library>(_patterns, VOLE_SCAN_SHALLOW);
        _deep = std::make_unique<Library>(_patterns, 0U);
    }
    Faces(const Faces&) = delete;
    Faces& operator=(const Faces&) = delete;
    ~Faces() { freeResource(); }

    void compare(const std::string& what, const Paths& paths, bool hasTarget = true) const {
        const Times sum = timesOf(paths, scanCleanFile, shallow());
        if (hasTarget) return _report.ratio(what, sum, kTarget);
        _report.info(what, sum);
    }
    void compareDeep(const std::string& what, const Paths& paths) const {
        _report.ratio(what, timesOf(paths, shallow(), of(*_deep)), kDeepTarget);
    }

private:
    using Scan = std::function<void(const std::string& path)>;

    static Scan of(const Library& library) {
        return [&library](const std::string& path) { library.scanCleanFile(path); };
    }
    Scan shallow() const { return of(*_shallow); }

    Times timesOf(const Paths& paths, const Scan& reference, const Scan& subject) const {
        Times sum{0, 0};
        for (const std::string& path : paths) {
            const Times best = bestOf(
                _rounds, [&] { return secondsOf([&] { reference(path); }); },
                [&] { return secondsOf([&] { subject(path); }); });
            sum = {sum.reference + best.reference, sum.subject + best.subject};
        }
        return sum;
    }

    std::string _patterns;
    int _rounds;
    Report& _report;
    std::unique_ptr<Library> _shallow;
    std::unique_ptr<Library> _deep;
};

// Many small files.
void benchTogether(Report& report, const std::string& what, const std::string& patterns, const Paths& files,
                   double target) {
    const Library library(patterns, 0U);
    std::vector<const char*> paths;
    for (const std::string& file : files) paths.push_back(file.c_str());
    const auto oneByOne = [&] {
        for (const std::string& file : files) library.scanCleanFile(file);
    };
    report.ratio(
        what,
        bestOf(
            20, [&] { return secondsOf(oneByOne); }, [&] { return secondsOf([&] { library.scanCleanFiles(paths); }); }),
        target);
}

}  // namespace

void benchFaces(const Settings& settings, Report& report) {
    report.section("The C interface / the first interface: the same scans in one process",
                   "Sums of the best time for each file, which is so short that some turns are not interrupted. 10,000 "
                   "records of each kind. The C interface compares the check-sums of members, too, which is most of "
                   "what there is to do in a stored one.");
    const corpus::Folder folder;
    const Faces faces(folder, settings, report);
    const Paths files = corpus::writeSmallFiles(folder.sub("files"), settings.quick ? 200 : 1000);
    faces.compare("small files", files);

    const corpus::Members members = corpus::chooseMembers(folder.sub("members"), 15, 600'000);
    const std::string deflated = folder / "deflated.zip", stored = folder / "stored.zip", lz = folder / "lz.rar";
    corpus::writeZip(deflated, members);
    corpus::writeZip(stored, members, "-0");
    corpus::writeRar(lz, members, packRarLz);
    faces.compare("ZIP archive, deflated", {deflated});
    faces.compare("ZIP archive, stored", {stored}, false);
    faces.compare("RAR archive, LZ", {lz});

    report.section("Deep scans / shallow ones, through the C interface",
                   "Archives of which all records agree, and contents that are none.");
    faces.compareDeep("small files", files);
    Paths unpacked;
    for (const auto& entry : fs::directory_iterator(members.folder)) unpacked.push_back(entry.path());
    faces.compareDeep("programs and texts", unpacked);
    faces.compareDeep("ZIP archive, deflated", {deflated});
    faces.compareDeep("ZIP archive, stored", {stored});
    faces.compareDeep("RAR archive, LZ", {lz});

    report.section("Small files by one call / by a call for each, through the C interface",
                   "In turns of all files. Digests are of several files at once.");
    const auto listed = folder.sub("listed");
    std::string records;
    for (int size = 1; size <= 16 * 1024; ++size) {
        records += std::string(32, 'a') + ":" + std::to_string(size) + ":Bench.Malware\n";
    }
    corpus::writeFile(listed / "bench.hdb", records);
    const Paths many = corpus::writeSmallFiles(folder.sub("many"), settings.quick ? 1000 : 20'000);
    benchTogether(report, "every size listed", listed, many, kTogetherTarget);
    benchTogether(report, "starter patterns, no size listed", STARTER_PATTERNS, many, kUnlistedTarget);
}
