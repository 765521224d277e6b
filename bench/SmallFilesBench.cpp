// A folder of small files, against reading them all.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <string>

#include "Benches.h"
#include "Corpus.h"
#include "Process.h"

namespace {

constexpr double kTarget = 1.5, kTwoTarget = 0.25, kColdTarget = 1.1;

void writeLargeSet(const std::filesystem::path& folder, bool quick) {
    corpus::writeHdb(folder / "bench.hdb", {quick ? 100'000U : 1'000'000U, corpus::Sizes::likeRealFiles});
    corpus::writeChk(folder / "bench.chk", {"", false, 0, 0x10000}, 10'000);
}

class Comparison {
public:
    Comparison(const corpus::Folder& folder, unsigned fileCount, int rounds)
        : _files(folder.sub("files")), _names(folder / "names"), _empty(folder.sub("empty")), _rounds(rounds) {
        std::string names;
        for (const std::string& path : corpus::writeSmallFiles(_files, fileCount)) names += path + '\0';
        corpus::writeFile(_names, names);
    }

    void run(Report& report, const std::string& what, const std::string& patterns) const {
        double load = std::numeric_limits<double>::infinity();
        const Times all = bestOf(
            _rounds,
            [&] {
                load = std::min(load, secondsToScan(patterns, _empty));
                return secondsToCat();
            },
            [&] { return secondsToScan(patterns, _files); });
        Times scanOnly = all;
        scanOnly.subject -= load;
        report.ratio(what + ", without start and loading / cat", scanOnly, kTarget);
        report.info(what + ", whole program / cat", all);
    }

    // Whole programs.
    void runOnTwo(Report& report) const {
        const auto scan = [&] { return secondsToScan(STARTER_PATTERNS, _files, "-j2"); };
        report.ratio("starter patterns, -j 2 / cat",
                     bestOf(
                         _rounds, [&] { return secondsToCat(); }, scan),
                     kTwoTarget);
        const auto cold = [&](const auto& seconds) {
            dropFromMemory();
            return seconds();
        };
        report.ratio("same, files not in the page cache / cat",
                     bestOf(
                         3, [&] { return cold([&] { return secondsToCat(); }); }, [&] { return cold(scan); }),
                     kColdTarget);
    }

private:
    static double secondsToScan(const std::string& patterns, const std::string& folder, const char* jobs = "-j1") {
        return secondsToRun({buildDir() + "/vole", "scan", jobs, "--no-isolate", "-i", "-d", patterns, folder});
    }
    double secondsToCat() const { return secondsToRun({"xargs", "-0", "-a", _names, "cat"}); }

    // Their contents; what the file system knows of them stays.
    void dropFromMemory() const {
        ::sync();  // What is not on the disk yet stays.
        for (const auto& entry : std::filesystem::recursive_directory_iterator(_files)) {
            const int fd = ::open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
            if (fd < 0) continue;
            ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
            ::close(fd);
        }
    }

    std::string _files;
    std::string _names;  // A file.
    std::string _empty;
    int _rounds;
};

}  // namespace

void benchSmallFiles(const Settings& settings, Report& report) {
    const unsigned count = settings.quick ? 4000 : 20'000;
    report.section(
        "Small files: vole scan -i / xargs cat, as programs, " + std::to_string(count) + " files",
        "0.5 to 16 KiB, half random bytes, half text, in the page cache. Start and loading are the time for an empty "
        "folder; cat is given the names. In the large set (MD5 and 10,000 checksum records) hardly a small size is "
        "missing: all are hashed.");
    const corpus::Folder folder;
    const auto largeSet = folder.sub("large");
    writeLargeSet(largeSet, settings.quick);

    const Comparison comparison(folder, count, settings.quick ? 3 : 9);
    comparison.run(report, "starter patterns", STARTER_PATTERNS);
    comparison.run(report, "large set", largeSet);
    comparison.runOnTwo(report);
}
