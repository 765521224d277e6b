// Runs of "vole scan" over many files: what a second processor, the cache and very many files make of them.
#include <filesystem>
#include <string>
#include <vector>

#include "ArchiveCorpus.h"
#include "Benches.h"
#include "Corpus.h"
#include "Process.h"

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

Command voleScan(const std::string& folder, const Command& options, const char* isolation = "--no-isolate") {
    Command command{buildDir() + "/vole", "scan", "-i", isolation, "--no-progress", "--incomplete=ok", "-d",
                    STARTER_PATTERNS};
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(folder);
    return command;
}

// Very small ones: what counts is what a run keeps of each.
void writeTinyFiles(const fs::path& folder, unsigned count) {
    constexpr unsigned kFilesPerFolder = 1000;
    for (unsigned i = 0; i < count; ++i) {
        const fs::path sub = folder / std::to_string(i / kFilesPerFolder);
        if (i % kFilesPerFolder == 0) fs::create_directory(sub);
        const std::string number = std::to_string(i);
        corpus::writeFile(sub / number, number);
    }
}

// One archive of a few programs and headers, so many times.
void writeArchives(const corpus::Folder& folder, const fs::path& to, unsigned count) {
    const std::string first = folder / "first.zip";
    corpus::writeZip(first, corpus::chooseMembers(folder.sub("members"), 10, 1'000'000));
    for (unsigned i = 0; i < count; ++i) {
        const fs::path half = to / (i % 2 == 0 ? "a" : "b");
        fs::create_directory(half);
        fs::copy_file(first, half / (std::to_string(i) + ".zip"));
    }
}

class ScanRuns {
public:
    ScanRuns(const Settings& settings, Report& report)
        : _report(report),
          _rounds(settings.quick ? 3 : 7),
          _divisor(settings.quick ? 5 : 1),
          _files(_folder.sub("files")),
          _archives(_folder.sub("archives")) {
        for (const char* half : {"a", "b"}) {
            fs::create_directory(fs::path(_files) / half);
            corpus::writeSmallFiles(fs::path(_files) / half, 10'000 / _divisor);
        }
        writeArchives(_folder, _archives, 300 / _divisor);
    }

    void parallel() {
        _report.section("Two files at a time: speed of vole scan -j 2, relative to vole scan -j 1",
                        "Whole programs; files are in the page cache. Only right on a machine with two processors "
                        "that has nothing else to do; the rows without a target are right on others, too.");
        twoAtATime("small files", _files);
        twoAtATime("ZIP archives of ten files", _archives);
    }

    void isolated() {
        _report.section("Contents looked at in other processes: vole scan --isolate, relative to --no-isolate",
                        "Whole programs, two files at a time; the isolated ones have two processes more to start.");
        isolatedRow("small files", _files, 1.08);
        isolatedRow("ZIP archives of ten files", _archives, 1.02);
    }

    void cached() {
        _report.section("Second run over an unchanged tree: vole scan --cache / find -printf, as programs",
                        "The cache is the one that a first run over the same small files left.");
        const Command scan = voleScan(_files, {"--cache", _folder / "cache"});
        secondsToRun(scan);
        const Times times = bestOf(
            3 * _rounds,
            [&] {
                return secondsToRun({"find", _files, "-type", "f", "-printf", "%D %i %s %T@ %C@ %p\\n"});
            },
            [&] { return secondsToRun(scan); });
        _report.ratio("small files, all clean and unchanged", times, 1.5);
    }

    void memory() {
        const unsigned few = 20'000 / _divisor, many = 10 * few;
        _report.section("Peak memory of vole scan over " + std::to_string(many) + " files / over " +
                        std::to_string(few));
        const std::string manyFiles = _folder.sub("many"), fewFiles = _folder.sub("few");
        writeTinyFiles(manyFiles, many);
        writeTinyFiles(fewFiles, few);
        memoryRow("without a cache", fewFiles, manyFiles, {});
        memoryRow("one file at a time", fewFiles, manyFiles, {"-j", "1"});
    }

private:
    // Where others keep the second processor busy, the first row says little; the second one still compares the program
    // with two that share the files.
    void twoAtATime(const std::string& what, const std::string& folder) {
        const auto secondsFor = [&folder](const char* jobs) { return secondsToRun(voleScan(folder, {"-j", jobs})); };
        Command halves{"sh", "-c", "\"$@\" \"$0/a\" & \"$@\" \"$0/b\"; wait", folder};
        const Command one = voleScan("", {"-j", "1"});
        halves.insert(halves.end(), one.begin(), one.end() - 1);
        const auto two = [&] { return secondsFor("2"); };
        _report.speed(what,
                      bestOf(
                          _rounds, [&] { return secondsFor("1"); }, two),
                      1.9);
        _report.info(what + " / two programs, half of them each",
                     bestOf(
                         _rounds, [&] { return secondsToRun(halves); }, two));
    }

    void isolatedRow(const std::string& what, const std::string& folder, double target) {
        const auto secondsFor = [&folder](const char* isolation) {
            return secondsToRun(voleScan(folder, {"-j", "2"}, isolation));
        };
        const Times times = bestOf(
            3 * _rounds, [&] { return secondsFor("--no-isolate"); }, [&] { return secondsFor("--isolate=require"); });
        _report.ratio(what, times, target);
    }

    void memoryRow(const std::string& what, const std::string& few, const std::string& many, const Command& options) {
        const std::string file = _folder / "peak";
        const auto kilobytes = [&](const std::string& folder) {
            return static_cast<double>(peakKilobytes(voleScan(folder, options), file));
        };
        const double base = kilobytes(few), peak = kilobytes(many);
        _report.value(what, peak / base, std::to_string(static_cast<int>(peak / 1024)) + " MiB", Bound::atMost, 1.1);
    }

    corpus::Folder _folder;
    Report& _report;
    int _rounds;
    unsigned _divisor;
    std::string _files;
    std::string _archives;
};

}  // namespace

void benchScanRuns(const Settings& settings, Report& report) {
    ScanRuns runs(settings, report);
    runs.parallel();
    runs.isolated();
    runs.cached();
    runs.memory();
}
