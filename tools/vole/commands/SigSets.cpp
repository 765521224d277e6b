// "vole sig stat", "vole sig diff" and "vole sig merge".
#include <iostream>
#include <span>

#include "Escape.h"
#include "JsonText.h"
#include "SearchOptions.h"
#include "SetDiff.h"
#include "SetMerge.h"
#include "SetStat.h"
#include "SigCommand.h"

namespace {

using json::Json;

constexpr const char* kPlaces[] = {"from the start", "from the end", "from the entry point", "from a section"};

// The parts of a count that are not 0, as "label: number" under a heading.
template <class Label>
void printParts(const char* heading, std::span<const std::uint64_t> parts, Label label) {
    std::cout << heading << "\n";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (parts[i] != 0) std::cout << "  " << label(i) << ": " << parts[i] << "\n";
    }
}

// The largest size that the bin has.
std::uint64_t lastOf(std::size_t bin) { return (std::uint64_t{1} << bin) - 1; }

void print(const SetStat& stat) {
    std::cout << "files: " << stat.files << "\nmd5 records: " << stat.md5 << "\nchecksum records: " << stat.checkSums
              << "\nlines left out: " << stat.leftOut << "\nfalse alarms: " << stat.falseAlarms
              << "\nmemory: " << stat.memoryBytes << " bytes\n";
    if (stat.md5 != 0) {
        printParts("sizes of md5 records, bytes", stat.md5Sizes,
                   [](std::size_t bin) { return "up to " + std::to_string(lastOf(bin)); });
    }
    if (stat.checkSums == 0) return;
    printParts("targets of checksum records", stat.targets, [](std::size_t target) { return std::to_string(target); });
    printParts("where their offsets count", stat.places, [](std::size_t type) { return kPlaces[type]; });
}

Json jsonOf(const SetStat& stat) {
    Json sizes = Json::array(), targets = Json::object(), places = Json::object();
    for (std::size_t i = 0; i < stat.md5Sizes.size(); ++i) {
        if (stat.md5Sizes[i] != 0) sizes.push_back({{"up_to", lastOf(i)}, {"records", stat.md5Sizes[i]}});
    }
    for (std::size_t i = 0; i < stat.targets.size(); ++i) {
        if (stat.targets[i] != 0) targets[std::to_string(i)] = stat.targets[i];
    }
    for (std::size_t i = 0; i < stat.places.size(); ++i) {
        if (stat.places[i] != 0) places[kPlaces[i]] = stat.places[i];
    }
    return {{"files", stat.files},
            {"md5", stat.md5},
            {"checksum", stat.checkSums},
            {"left_out", stat.leftOut},
            {"false_alarms", stat.falseAlarms},
            {"memory", stat.memoryBytes},
            {"md5_sizes", sizes},
            {"targets", targets},
            {"places", places}};
}

class SigStat : public Command {
public:
    explicit SigStat(CLI::App& sig)
        : Command(*sig.add_subcommand("stat", "Tell how many signatures of what kind there are")) {
        addPaths("PATH", _paths, "Pattern directories and files: one set together");
        app().add_flag("--json", _json, "Print one line of JSON");
    }

    ExitCode run() const override {
        const SetStat stat = statOf(_paths);
        if (_json) {
            std::cout << json::lineOf(jsonOf(stat)) << "\n";
        } else {
            print(stat);
        }
        return written(kExitClean);
    }

private:
    std::vector<std::string> _paths;
    bool _json = false;
};

class SigDiff : public Command {
public:
    explicit SigDiff(CLI::App& sig)
        : Command(*sig.add_subcommand("diff", "Tell what one set has and another has not")) {
        addPath("OLD", _old, "Pattern directory or file");
        addPath("NEW", _new, "Pattern directory or file");
        app().add_flag("--json", _json, "Print lines of JSON");
        app().footer(
            "\"- RECORD\" is in OLD only, \"+ RECORD\" in NEW only, \"~ RECORD (was NAME)\" has another name.\n"
            "Exit status: 0 both match the same under the same names, 1 they differ, 2 errors.");
    }

    ExitCode run() const override {
        const DiffTally tally = diffSets(
            _old, _new, [this](const SetChange& change) { std::cout << (_json ? jsonOf(change) : textOf(change)); });
        const bool differ = tally.removed + tally.renamed + tally.added != 0;
        if (_json) {
            std::cout << json::lineOf(
                             {{"summary",
                               {{"removed", tally.removed}, {"renamed", tally.renamed}, {"added", tally.added}}}})
                      << "\n";
        }
        return written(differ ? kExitFound : kExitClean);
    }

private:
    static std::string textOf(const SetChange& change) {
        std::string line;
        if (change.kind == SetChange::Kind::removed) line += "- ";
        if (change.kind == SetChange::Kind::renamed) line += "~ ";
        if (change.kind == SetChange::Kind::added) line += "+ ";
        line += printable(change.record);
        if (change.kind == SetChange::Kind::renamed) line.append(" (was ").append(printable(change.oldName)) += ')';
        return line += '\n';
    }

    static std::string jsonOf(const SetChange& change) {
        static constexpr const char* kWords[] = {"removed", "renamed", "added"};
        Json object = {{"change", kWords[static_cast<std::size_t>(change.kind)]},
                       {"record", json::textOf(change.record)}};
        if (change.kind == SetChange::Kind::renamed) object["was"] = json::textOf(change.oldName);
        return json::lineOf(object) + "\n";
    }

    std::string _old, _new;
    bool _json = false;
};

class SigMerge : public Command {
public:
    explicit SigMerge(CLI::App& sig)
        : Command(*sig.add_subcommand("merge", "Write several sets as one, without what is in them twice")) {
        addPaths("PATH", _options.paths, "Pattern directories and files, in the order of a load");
        app()
            .add_option("-o,--output", _options.folder, "Folder to write merged.hdb, merged.chk and the lists to")
            ->type_name("DIR")
            ->required()
            ->check(notEmpty());
        app().add_flag("--one-name", _options.oneName,
                       "Of records that differ in nothing but their names, keep the last one");
    }

    ExitCode run() const override {
        const MergeTally tally = mergeSets(_options);
        std::string folder;
        appendEscaped(folder, _options.folder);
        std::cout << folder << ": " << tally.records << " written, " << tally.repeated << " left out as repeated\n";
        return written(kExitClean);
    }

private:
    MergeOptions _options;
};

}  // namespace

std::unique_ptr<Command> newSigStat(CLI::App& sig) { return std::make_unique<SigStat>(sig); }
std::unique_ptr<Command> newSigDiff(CLI::App& sig) { return std::make_unique<SigDiff>(sig); }
std::unique_ptr<Command> newSigMerge(CLI::App& sig) { return std::make_unique<SigMerge>(sig); }
