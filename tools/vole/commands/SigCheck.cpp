// "vole sig check".
#include <iostream>

#include "Escape.h"
#include "JsonText.h"
#include "SearchOptions.h"
#include "SetCheck.h"
#include "SigCommand.h"

namespace {

const char* wordFor(Remark::Severity severity) { return severity == Remark::Severity::error ? "error" : "warning"; }

// "FILE:LINE:COLUMN: error: what is wrong [code]", as compilers have it.
std::string textLine(const Remark& remark) {
    std::string line;
    appendEscaped(line, remark.file.get());
    if (remark.line != 0) line += ":" + std::to_string(remark.line);
    if (remark.column != 0) line += ":" + std::to_string(remark.column);
    line.append(": ").append(wordFor(remark.severity)).append(": ");
    appendEscaped(line, remark.text);
    return line.append(" [").append(remark.code).append("]\n");
}

std::string jsonLine(const Remark& remark) {
    json::Json object = {{"file", json::textOf(remark.file.get())}};
    if (remark.line != 0) object["line"] = remark.line;
    if (remark.column != 0) object["column"] = remark.column;
    object["severity"] = wordFor(remark.severity);
    object["code"] = remark.code;
    object["text"] = json::textOf(remark.text);
    return json::lineOf(object) + "\n";
}

std::string jsonSummary(const CheckTally& tally) {
    return json::lineOf(json::Json::object({{"summary",
                                             {{"files", tally.files},
                                              {"records", tally.records},
                                              {"errors", tally.errors},
                                              {"warnings", tally.warnings}}}})) +
           "\n";
}

class SigCheck : public Command {
public:
    explicit SigCheck(CLI::App& sig)
        : Command(*sig.add_subcommand("check", "Tell what is wrong in pattern files, or not as it may be meant")) {
        addPaths("PATH", _options.paths,
                 "Pattern directories and files, voleeng.ini and pattern_assistant.xml: one set together");
        app()
            .add_option("--names", _options.names, "Names have to fit this shell pattern")
            ->type_name("GLOB")
            ->check(notEmpty());
        app().add_flag("--strict", _strict, "Warnings count for the exit status, too");
        app().add_flag("--json", _json, "Report in lines of JSON");
        app().footer(
            "Exit status: 0 nothing to be said against the set, or only warnings; 1 warnings, with --strict; 2 "
            "errors:\n"
            "lines that are left out or changed by a load, and files that cannot be used.");
    }

    ExitCode run() const override {
        const CheckTally tally = checkSet(
            _options, [this](const Remark& remark) { std::cout << (_json ? jsonLine(remark) : textLine(remark)); });
        if (_json) {
            std::cout << jsonSummary(tally);
        } else {
            std::cout << counted(tally.errors, "error") << ", " << counted(tally.warnings, "warning") << " in "
                      << counted(tally.records, "record") << " of " << counted(tally.files, "file") << "\n";
        }
        if (tally.errors != 0) return written(kExitErrors);
        return written(_strict && tally.warnings != 0 ? kExitFound : kExitClean);
    }

private:
    CheckOptions _options;
    bool _strict = false, _json = false;
};

}  // namespace

std::unique_ptr<Command> newSigCheck(CLI::App& sig) { return std::make_unique<SigCheck>(sig); }
