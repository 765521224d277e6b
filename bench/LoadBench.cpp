// What loading MD5 records costs in time and memory.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "Benches.h"
#include "Corpus.h"
#include "PatternContainer.h"
#include "Process.h"
#include "vole.h"

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

using Set = std::unique_ptr<vole_signatures, decltype(&vole_signatures_unref)>;

// Of the folder that the file is alone in.
Set loadedSet(const std::string& path, std::uint64_t count, std::uint32_t flags) {
    vole_load_options options = VOLE_LOAD_OPTIONS_INIT;
    options.flags = flags;
    vole_signatures* set = nullptr;
    vole_signatures_load(std::filesystem::path(path).parent_path().c_str(), &options, &set);
    if (!set || vole_signatures_count(set) != count) throw std::runtime_error("loading of " + path);
    return {set, vole_signatures_unref};
}

double timeToLoadSet(const std::string& path, std::uint64_t count, std::uint32_t flags) {
    Set set{nullptr, vole_signatures_unref};
    return secondsOf([&] { set = loadedSet(path, count, flags); });
}

// A line of /proc/self/status that counts in KiB.
double statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(field + ":")) return std::stod(line.substr(field.size() + 1)) * 1024;
    }
    throw std::runtime_error("no " + field);
}

struct Memory {
    double peak = -1;      // The most at any moment of a load, above what there was before.
    double resident = -1;  // What is left of that when it is loaded.
    double reload = -1;    // The peak of loading it again, the first set kept until the second one is there.
};

Memory memoryToLoad(const std::string& path, std::uint64_t count, std::uint32_t flags) {
    Memory memory;
    const double before = statusBytes("VmRSS");
    const Set first = loadedSet(path, count, flags);
    memory.peak = statusBytes("VmHWM") - before;
    const double between = statusBytes("VmRSS");
    memory.resident = between - before;
    const Set second = loadedSet(path, count, flags);
    memory.reload = statusBytes("VmHWM") - between;
    return memory;
}

// How far loading drives the process's resident memory. A process of its own, because the parent's heap has free room
// that would hide a part.
Memory measuredMemory(const std::string& path, std::uint64_t count, std::uint32_t flags) {
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) throw std::runtime_error("no pipe");
    ::malloc_trim(0);
    const pid_t child = ::fork();
    Memory memory;
    if (child == 0) {
        try {
            memory = memoryToLoad(path, count, flags);
        } catch (const std::exception&) {
        }
        const bool told = ::write(pipeEnds[1], &memory, sizeof memory) == sizeof memory;
        ::_exit(told ? 0 : 1);
    }
    ::close(pipeEnds[1]);
    const bool heard = child > 0 && ::read(pipeEnds[0], &memory, sizeof memory) == sizeof memory;
    ::close(pipeEnds[0]);
    if (child > 0) ::waitpid(child, nullptr, 0);
    if (!heard || memory.reload < 0) throw std::runtime_error("loading in a process of its own");
    return memory;
}

void reportMemory(Report& report, const std::string& records, const std::string& path, std::uint64_t count) {
    const Memory memory = measuredMemory(path, count, 0);
    const Memory byTwo = measuredMemory(path, count, VOLE_LOAD_THREADS);
    const double perRecord = memory.peak / static_cast<double>(count);
    report.value("memory, " + records, perRecord - static_cast<double>(Md5Records::kNameLength + 1), "bytes a record",
                 Bound::atMost, 64);
    const std::string among = " of " + records + ", among what is left of it";
    report.value("peak of a load" + among, memory.peak / memory.resident, "", Bound::atMost, 1.15);
    report.value("same, by two threads" + among, byTwo.peak / byTwo.resident, "", Bound::atMost, 1.15);
    report.value("peak of a reload above the old set" + among, memory.reload / memory.resident, "", Bound::atMost,
                 1.15);
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
    const std::string fewRandom = folder.sub("few") / "a.hdb";
    const std::string manyRandom = folder.sub("many") / "a.hdb";
    const std::string fewAscending = folder.sub("few-ascending") / "a.hdb";
    const std::string manyAscending = folder.sub("many-ascending") / "a.hdb";
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
    report.ratio(fewText + " records, random sizes / md5sum of the file", versusMd5sum(fewRandom), 0.6);
    report.ratio(fewText + " records, ascending sizes / md5sum of the file", versusMd5sum(fewAscending), 0.6);

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
        report.ratio(what + ", CPU time", cpu, 10.5);
        report.info(what + ", wall time", wall);
    };
    manyVersusFew("random", manyRandom, fewRandom);
    manyVersusFew("ascending", manyAscending, fewAscending);

    const auto twoVersusOne = [&](int turns, const std::string& path, std::uint64_t count) {
        return bestOf(
            turns, [&] { return timeToLoadSet(path, count, 0); },
            [&] { return timeToLoadSet(path, count, VOLE_LOAD_THREADS); });
    };
    const std::string two = " records, two threads, against the speed of one";
    report.speed(fewText + two, twoVersusOne(2 * rounds, fewRandom, few), 1.6);
    report.speed(manyText + two, twoVersusOne((rounds + 1) / 2, manyRandom, many), 1.6);

    reportMemory(report, fewText + " records", fewRandom, few);
    reportMemory(report, manyText + " records", manyRandom, many);
}
