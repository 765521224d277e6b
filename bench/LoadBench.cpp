// What loading MD5 records costs in time and memory.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Benches.h"
#include "Corpus.h"
#include "PatternContainer.h"
#include "Process.h"

namespace {

using corpus::Md5Records;

void load(PatternContainer& container, const std::string& path, std::uint64_t count) {
    if (container.loadPattern(path) != 0 || container.md5List().count() != count) {
        throw std::runtime_error("loading of " + path);
    }
}

struct LoadTime {
    double wall;
    double cpu;
};

// Without the time that taking the records down again costs.
LoadTime timeToLoad(const std::string& path, std::uint64_t count) {
    PatternContainer container;
    LoadTime time{};
    time.cpu = cpuSecondsOf([&] { time.wall = secondsOf([&] { load(container, path, count); }); });
    return time;
}

// A line of /proc/self/status that counts in KiB.
double statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1)) * 1024;
    }
    throw std::runtime_error("no " + field);
}

// How far loading drives the process's resident memory, the most at any moment. A process of its own, because the
// parent's heap has free room that would hide a part.
double peakBytesToLoad(const std::string& path, std::uint64_t count) {
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) throw std::runtime_error("no pipe");
    ::malloc_trim(0);
    const pid_t child = ::fork();
    if (child == 0) {
        double growth = -1;
        try {
            PatternContainer container;
            const double before = statusBytes("VmRSS");
            load(container, path, count);
            growth = statusBytes("VmHWM") - before;
        } catch (const std::exception&) {
        }
        const bool told = ::write(pipeEnds[1], &growth, sizeof growth) == sizeof growth;
        ::_exit(told ? 0 : 1);
    }
    double growth = -1;
    ::close(pipeEnds[1]);
    const bool heard = child > 0 && ::read(pipeEnds[0], &growth, sizeof growth) == sizeof growth;
    ::close(pipeEnds[0]);
    if (child > 0) ::waitpid(child, nullptr, 0);
    if (!heard || growth < 0) throw std::runtime_error("loading in a process of its own");
    return growth;
}

void reportMemory(Report& report, const std::string& what, const std::string& path, std::uint64_t count) {
    const double perRecord = peakBytesToLoad(path, count) / static_cast<double>(count);
    report.value(what, perRecord - static_cast<double>(Md5Records::kNameLength + 1), "bytes a record", Bound::atMost,
                 64);
}

}  // namespace

void benchLoading(const Settings& settings, Report& report) {
    const std::uint64_t few = settings.quick ? 100'000 : 1'000'000;
    const std::uint64_t many = 10 * few;
    const std::string fewText = std::to_string(few);
    const std::string manyText = std::to_string(many);
    const int rounds = settings.quick ? 3 : 7;

    report.section(
        "Loading .hdb files: random digests, names of 20 bytes, no \"#count:\"",
        "Loading runs in this process, md5sum as a program; files are in the page cache. Memory is the "
        "largest growth of resident memory, less the names with their NULs. 10,000,000 records take so long that wall "
        "time is only right on a machine without other work; CPU time decides.");
    const corpus::Folder folder;
    const std::string fewRandom = folder / "few.hdb";
    const std::string manyRandom = folder / "many.hdb";
    const std::string fewAscending = folder / "few-ascending.hdb";
    const std::string manyAscending = folder / "many-ascending.hdb";
    corpus::writeHdb(fewRandom, {few});
    corpus::writeHdb(manyRandom, {many});
    corpus::writeHdb(fewAscending, {few, corpus::Sizes::ascending});
    corpus::writeHdb(manyAscending, {many, corpus::Sizes::ascending});

    const auto versusMd5sum = [&](const std::string& path) {
        return bestOf(
            rounds,
            [&] {
                return secondsToRun({"md5sum", path});
            },
            [&] { return timeToLoad(path, few).wall; });
    };
    report.ratio(fewText + " records, random sizes / md5sum of the file", versusMd5sum(fewRandom), 3);
    report.ratio(fewText + " records, ascending sizes / md5sum of the file", versusMd5sum(fewAscending), 3);

    const auto manyVersusFew = [&](const std::string& order, const std::string& manyPath, const std::string& fewPath) {
        Times wall;
        Times cpu;
        for (int round = 0; round < (rounds + 1) / 2; ++round) {
            const LoadTime reference = timeToLoad(fewPath, few);
            const LoadTime subject = timeToLoad(manyPath, many);
            wall.add(reference.wall, subject.wall);
            cpu.add(reference.cpu, subject.cpu);
        }
        const std::string what = manyText + " / " + fewText + " records, " + order + " sizes";
        report.ratio(what + ", CPU time", cpu, 13);
        report.info(what + ", wall time", wall);
    };
    manyVersusFew("random", manyRandom, fewRandom);
    manyVersusFew("ascending", manyAscending, fewAscending);

    reportMemory(report, "memory, " + fewText + " records", fewRandom, few);
    reportMemory(report, "memory, " + manyText + " records", manyRandom, many);
}
