// The C interface against the first one, on the same contents by the same signatures: one core is behind both, so
// reports, limits and check-sums of members are what the difference consists of.
#include <filesystem>
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

// The set of a folder, and one scanner.
class Library {
public:
    explicit Library(const std::string& patterns) {
        vole_signatures* signatures = nullptr;
        if (vole_signatures_load(patterns.c_str(), nullptr, &signatures) != VOLE_OK) {
            throw std::runtime_error("cannot load " + patterns);
        }
        vole_scanner* scanner = nullptr;
        const vole_error error = vole_scanner_new(signatures, nullptr, &scanner);
        vole_signatures_unref(signatures);
        if (error != VOLE_OK) throw std::runtime_error(vole_error_text(error));
        _scanner.reset(scanner);
    }

    // Members of formats that are not opened count as clean, as the first interface has it.
    void scanCleanFile(const std::string& path) const {
        vole_outcome outcome;
        if (vole_scan_path(_scanner.get(), path.c_str(), &outcome) != VOLE_OK || outcome == VOLE_OUTCOME_FOUND) {
            throw std::runtime_error("scan of " + path + ": " + vole_outcome_name(outcome));
        }
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
        _library = std::make_unique<Library>(_patterns);
    }
    Faces(const Faces&) = delete;
    Faces& operator=(const Faces&) = delete;
    ~Faces() { freeResource(); }

    void compare(const std::string& what, const Paths& paths, bool hasTarget = true) const {
        Times sum{0, 0};
        for (const std::string& path : paths) {
            const Times best = bestOf(
                _rounds, [&] { return secondsOf([&] { scanCleanFile(path); }); },
                [&] { return secondsOf([&] { _library->scanCleanFile(path); }); });
            sum = {sum.reference + best.reference, sum.subject + best.subject};
        }
        if (hasTarget) return _report.ratio(what, sum, kTarget);
        _report.info(what, sum);
    }

private:
    std::string _patterns;
    int _rounds;
    Report& _report;
    std::unique_ptr<Library> _library;
};

}  // namespace

void benchFaces(const Settings& settings, Report& report) {
    report.section("The C interface / the first interface: the same scans in one process",
                   "Sums of the best time for each file, which is so short that some turns are not interrupted. 10,000 "
                   "records of each kind. The C interface compares the check-sums of members, too, which is most of "
                   "what there is to do in a stored one.");
    const corpus::Folder folder;
    const Faces faces(folder, settings, report);
    faces.compare("small files", corpus::writeSmallFiles(folder.sub("files"), settings.quick ? 200 : 1000));

    const corpus::Members members = corpus::chooseMembers(folder.sub("members"), 15, 600'000);
    const std::string deflated = folder / "deflated.zip", stored = folder / "stored.zip", lz = folder / "lz.rar";
    corpus::writeZip(deflated, members);
    corpus::writeZip(stored, members, "-0");
    corpus::writeRar(lz, members, packRarLz);
    faces.compare("ZIP archive, deflated", {deflated});
    faces.compare("ZIP archive, stored", {stored}, false);
    faces.compare("RAR archive, LZ", {lz});
}
