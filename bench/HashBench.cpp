// Files whose size is in the list, against "openssl md5", and one whose size is not, against reading it.
#include <array>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

#include "Benches.h"
#include "Corpus.h"
#include "Md5Lanes.h"
#include "Process.h"

namespace {

constexpr std::uintmax_t kGiB = std::uintmax_t{1} << 30;

// A pattern folder whose only record has this size.
std::string patternsWithSize(const corpus::Folder& folder, std::uintmax_t size) {
    const auto patterns = folder.sub("patterns" + std::to_string(size));
    corpus::writeFile(patterns / "bench.hdb", std::string(32, 'a') + ":" + std::to_string(size) + ":Bench.Malware\n");
    return patterns;
}

void benchHashed(Report& report, const corpus::Folder& folder, const std::string& what, std::size_t size,
                 unsigned fileCount, int rounds) {
    std::vector<std::string> files;
    for (unsigned i = 0; i < fileCount; ++i) {
        files.push_back(folder / ("hashed" + std::to_string(size) + "-" + std::to_string(i)));
        corpus::writeFile(files.back(), corpus::randomBytes(2000 + i, size));
    }
    std::vector<std::string> reference{"openssl", "md5"};
    std::vector<std::string> subject{buildDir() + "/vole", "scan", "-j1",
                                     "--no-isolate",       "-d",   patternsWithSize(folder, size)};
    reference.insert(reference.end(), files.begin(), files.end());
    subject.insert(subject.end(), files.begin(), files.end());
    report.speed(what,
                 bestOf(
                     rounds, [&] { return secondsToRun(reference); }, [&] { return secondsToRun(subject); }),
                 0.95);
    for (const std::string& file : files) std::filesystem::remove(file);
}

// Contents in memory, against one stream of as many bytes.
void benchTogether(Report& report, const corpus::Folder& folder, std::size_t bytes, int rounds) {
    constexpr std::size_t kSize = 10 * 1024, kTogether = 8;
    const std::string file = folder / "stream", all = corpus::randomBytes(3000, bytes - bytes % (kTogether * kSize));
    corpus::writeFile(file, all);
    const auto digestAll = [&] {
        std::array<Md5Content, kTogether> contents;
        for (std::span<const char> rest(all); !rest.empty();) {
            for (Md5Content& content : contents) {
                content.bytes = rest.first(kSize);
                rest = rest.subspan(kSize);
            }
            digestTogether(contents);
        }
    };
    const auto reference = [&] { return secondsToRun({"openssl", "md5", file}); };
    report.speed("speed, contents of 10 KiB in memory, eight at once, and one file of as many bytes",
                 bestOf(rounds, reference, [&] { return secondsOf(digestAll); }), 3);
}

void benchUnlisted(Report& report, const corpus::Folder& folder, int rounds) {
    const std::string file = folder / "unlisted";
    corpus::writeFile(file, "");
    std::filesystem::resize_file(file, kGiB);
    const std::string patterns = patternsWithSize(folder, 68);
    const std::vector<std::string> subject{buildDir() + "/vole", "scan", "-j1", "--no-isolate", "-d", patterns, file};
    report.ratio("1 GiB, sparse, size not in the list: vole scan / cat",
                 bestOf(
                     rounds,
                     [&] {
                         return secondsToRun({"cat", file});
                     },
                     [&] { return secondsToRun(subject); }),
                 0.05);
}

}  // namespace

void benchHashing(const Settings& settings, Report& report) {
    report.section("Large files: vole scan / openssl md5 or cat, as programs",
                   "Files are in the page cache; starting the program counts. Speed is openssl's time / vole's.");
    const int rounds = settings.quick ? 3 : 7;
    const unsigned scale = settings.quick ? 4 : 1;
    const corpus::Folder folder;
    const unsigned megabytes = 256 / scale;
    benchHashed(report, folder, "speed, one file of " + std::to_string(megabytes) + " MiB, size in the list",
                std::size_t{megabytes} << 20, 1, rounds);
    benchHashed(report, folder, "speed, " + std::to_string(megabytes) + " files of 1 MiB, size in the list",
                std::size_t{1} << 20, megabytes, rounds);
    const unsigned small = 4000 / scale;
    benchHashed(report, folder, "speed, " + std::to_string(small) + " files of 10 KiB, size in the list", 10 * 1024,
                small, rounds);
    benchTogether(report, folder, std::size_t{megabytes} << 20, rounds);
    benchUnlisted(report, folder, settings.quick ? 2 : 5);
}
