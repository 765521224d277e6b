// Unpacking and scanning archives, against programs that unpack them.
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "ArchiveCorpus.h"
#include "Benches.h"
#include "Corpus.h"
#include "Md5.h"
#include "Process.h"
#include "RarPacker.h"

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

constexpr double kMebibyte = 1048576;
constexpr double kMostOfBsdtar = 0.45;  // Of its CPU time, where members are deflated.

Command bsdtar(const std::string& archive) { return {"bsdtar", "-xOf", archive}; }
Command unar(const std::string& archive) { return {"unar", "-q", "-o", "-", "-f", archive}; }
Command vole(const std::string& patterns, const std::string& archive) {
    // A sample holds an archive of a format that is not opened.
    return {buildDir() + "/vole", "scan", "-j1", "--no-isolate", "-i", "--incomplete=ok", "-d", patterns, archive};
}

// Copies of the starter patterns, with limits that let everything through.
std::string patternsWithoutLimits(const corpus::Folder& folder) {
    const fs::path patterns = folder / "patterns";
    fs::copy(STARTER_PATTERNS, patterns);
    corpus::writeFile(patterns / "voleeng.ini",
                      "MaxUnarEntries = 0\nMaxUnarRatio = 0\nMaxUnarLevelEntries = 0\nMaxUnarSize = 100000000\n");
    return patterns;
}

struct Comparison {
    Times wall;
    Times cpu;
};

// Against the fastest of the references.
Comparison compare(int rounds, const std::vector<Command>& references, const Command& subject) {
    constexpr double kNothing = std::numeric_limits<double>::infinity();
    Comparison best;
    for (int round = 0; round < rounds; ++round) {
        for (const Command& reference : references) {
            const RunTime time = timeToRun(reference);
            best.wall.add(time.wall, kNothing);
            best.cpu.add(time.cpu, kNothing);
        }
        const RunTime time = timeToRun(subject);
        best.wall.add(kNothing, time.wall);
        best.cpu.add(kNothing, time.cpu);
    }
    return best;
}

std::string md5Of(const std::string& content) {
    Md5 context;
    unsigned char digest[Md5::kDigestSize];
    context.MD5Update(content.data(), content.size());
    context.MD5Final(digest);
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

class ArchiveBench {
public:
    ArchiveBench(const Settings& settings, Report& report)
        : _report(report),
          _quick(settings.quick),
          _patterns(patternsWithoutLimits(_folder)),
          _mixed(corpus::chooseMembers(_folder.sub("mixed"), count(settings), 6'000'000)),
          _smaller(corpus::chooseMembers(_folder.sub("smaller"), count(settings), 4'000'000)) {}

    void zip() {
        _report.section(
            "ZIP archives of " + textOf(_mixed) + ": vole scan / bsdtar -xOf, as programs",
            "Programs, libraries, scripts and headers of this machine. Output is thrown away, files are in the page "
            "cache, starting counts, no limit on unpacking. Wall time is only right on a machine without other work.");
        const std::string mixed = _folder / "mixed.zip";
        corpus::writeZip(mixed, _mixed);
        zipRows("deflated, mixed sizes", mixed, _mixed, kMostOfBsdtar);
        memoryRow("peak memory of that scan", mixed);

        const std::string streamed = _folder / "streamed.zip";
        corpus::writeStreamedZip(streamed, _mixed);
        const Comparison times = compareZip(streamed, _mixed);
        _report.info("the same, sizes behind the data", times.wall);
        _report.ratio("the same, sizes behind the data, CPU time", times.cpu, kMostOfBsdtar);
        memoryRow("peak memory of that scan", streamed);

        const std::string stored = _folder / "stored.zip";
        corpus::writeZip(stored, _mixed, "-0");
        zipRows("the same, stored", stored, _mixed, 1);

        const corpus::Members equal = corpus::cutEqually(_mixed, _folder.sub("equal"));
        const std::string equalZip = _folder / "equal.zip";
        corpus::writeZip(equalZip, equal);
        zipRows("the same, cut into equal sizes", equalZip, equal, kMostOfBsdtar);
    }

    void rar() {
        _report.section(
            "RAR archives: speed of vole scan, relative to the faster of bsdtar -xOf and unar -o -, as programs",
            "Again " + textOf(_smaller) +
                ", each packed on its own in this run; both references print them byte for byte, "
                "which bsdtar would not do with files larger than the window of 4 MiB. Samples are single real "
                "archives, too small for more than a look: starting takes a good part of the time, with unar most of "
                "all.");
        rarRows("LZ", "lz.rar", packRarLz, 5, 2.5);
        rarRows("PPM", "ppm.rar", packRarPpm, 3, 1.35);
        samples();
    }

private:
    int rounds(int full) const { return _quick ? (full + 2) / 3 : full; }

    static unsigned count(const Settings& settings) { return settings.quick ? 60 : 300; }

    static std::string textOf(const corpus::Members& members) {
        char text[64];
        std::snprintf(text, sizeof text, "%u files (%.0f MB)", members.count, static_cast<double>(members.bytes) / 1e6);
        return text;
    }

    Comparison compareZip(const std::string& archive, const corpus::Members& members) const {
        checkScan(archive, members);
        return compare(rounds(9), {bsdtar(archive)}, vole(_patterns, archive));
    }

    void zipRows(const std::string& what, const std::string& archive, const corpus::Members& members, double target) {
        const Comparison times = compareZip(archive, members);
        _report.ratio(what, times.wall, 1);
        _report.ratio(what + ", CPU time", times.cpu, target);
    }

    void memoryRow(const std::string& what, const std::string& archive) {
        const long kilobytes = peakKilobytes(vole(_patterns, archive), _folder / "peak");
        _report.value(what, static_cast<double>(kilobytes) * 1024 / kMebibyte, "MiB", Bound::atMost, 24);
    }

    void rarRows(const std::string& what, const std::string& name, corpus::Packer pack, int full, double target) {
        const std::string archive = _folder / name;
        corpus::writeRar(archive, _smaller, pack);
        corpus::writeFile(_folder / "expected", _smaller.concatenated());
        for (const Command& reference : {bsdtar(archive), unar(archive)}) checkOutput(reference);
        fs::remove(_folder / "expected");
        checkScan(archive, _smaller);
        speedRows(what, archive, {bsdtar(archive), unar(archive)}, full, target);
    }

    void speedRows(const std::string& what, const std::string& archive, const std::vector<Command>& references,
                   int full, double target) {
        const Comparison times = compare(rounds(full), references, vole(_patterns, archive));
        _report.speed(what, times.wall, target);
        _report.speed(what + ", CPU time", times.cpu, target);
    }

    void samples() {
        const std::string real = VOLE_SAMPLES_DIR "/rar/alpine_lzss.rar";
        if (!fs::exists(real)) return _report.note("No samples in " VOLE_SAMPLES_DIR ": left out.");
        speedRows("LZ, sample of 8 MB", real, {bsdtar(real), unar(real)}, 15, 2.5);
        // bsdtar unpacks this one to something else.
        const std::string blocks = VOLE_SAMPLES_DIR "/rar/test_read_format_rar_multi_lzss_blocks.rar";
        speedRows("LZ, sample of 20 MB in 20 KB, unar only", blocks, {unar(blocks)}, 15, 1.5);
    }

    // That the program prints all members.
    void checkOutput(const Command& command) const {
        Command check{"sh", "-c", "expected=$0; \"$@\" | cmp - \"$expected\"", _folder / "expected"};
        check.insert(check.end(), command.begin(), command.end());
        secondsToRun(check);
    }

    // That the scan gets as far as the last member.
    void checkScan(const std::string& archive, const corpus::Members& members) const {
        const std::string last = members.last();
        const fs::path patterns = _folder / "check";
        fs::create_directory(patterns);
        fs::copy_file(_patterns + "/voleeng.ini", patterns / "voleeng.ini", fs::copy_options::overwrite_existing);
        corpus::writeFile(patterns / "last.hdb", md5Of(last) + ":" + std::to_string(last.size()) + ":Bench.Last\n");
        Command check{"sh", "-c", "\"$0\" \"$@\" | grep Bench.Last"};
        for (const std::string& word : vole(patterns, archive)) check.push_back(word);
        secondsToRun(check);
    }

    corpus::Folder _folder;
    Report& _report;
    bool _quick;
    std::string _patterns;
    corpus::Members _mixed;
    corpus::Members _smaller;
};

}  // namespace

void benchArchives(const Settings& settings, Report& report) {
    ArchiveBench bench(settings, report);
    bench.zip();
    bench.rar();
}
