// Prints the ratios that the engine is held to, each against its reference in the same run.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "Benches.h"

namespace {

struct Group {
    std::string_view name;
    void (*run)(const Settings&, Report&);
};

constexpr Group kGroups[] = {
    {"loading", benchLoading}, {"lookup", benchLookup},          {"checksums", benchCheckSums},
    {"hashing", benchHashing}, {"small-files", benchSmallFiles}, {"archives", benchArchives},
    {"faces", benchFaces},     {"scan-runs", benchScanRuns},     {"micro", runMicrobenchmarks},
};

void printUsage() {
    std::printf("usage: run-benchmarks [--quick] [--json=FILE] [GROUP...]\n");
    std::printf("Runs the named groups, or all of them. --quick: less data and fewer rounds, for a look.\n");
    std::printf("--json=FILE: writes all figures, but those of \"micro\", to FILE, too.\nGroups:");
    for (const Group& group : kGroups) std::printf(" %.*s", static_cast<int>(group.name.size()), group.name.data());
    std::printf("\n");
}

bool isGroup(std::string_view word) {
    return std::any_of(std::begin(kGroups), std::end(kGroups), [=](const Group& group) { return group.name == word; });
}

void runGroups(const Settings& settings, const std::vector<std::string_view>& wanted, const std::string& json) {
    Report report;
    report.note("Times are subject / reference, each the best of several turns that the two take; then their ratio.");
    for (const Group& group : kGroups) {
        const bool named = std::find(wanted.begin(), wanted.end(), group.name) != wanted.end();
        if (!wanted.empty() && !named) continue;
        group.run(settings, report);
        if (!json.empty()) report.writeJson(json);  // After each, for those that take long and fail.
    }
    report.summary();
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    std::vector<std::string_view> wanted;
    std::string json;
    for (const std::string_view word : std::vector<std::string_view>(argv + 1, argv + argc)) {
        if (word == "--quick") {
            settings.quick = true;
        } else if (constexpr std::string_view option = "--json="; word.starts_with(option)) {
            json = word.substr(option.size());
        } else if (isGroup(word)) {
            wanted.push_back(word);
        } else {
            printUsage();
            return word == "--help" ? 0 : 2;
        }
    }
    try {
        runGroups(settings, wanted, json);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "run-benchmarks: %s\n", error.what());
        return 2;
    }
    return 0;
}
