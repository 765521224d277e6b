// "vole sig test".
#include <iostream>

#include "Escape.h"
#include "Interruption.h"
#include "JsonText.h"
#include "ReadingOptions.h"
#include "ReleaseTest.h"
#include "SearchOptions.h"
#include "SigCommand.h"

namespace {

using json::Json;

constexpr const char* kWords[] = {"found", "missing", "unseen", "unlisted", "absent", "unreadable"};

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) appendEscaped(text.append(text.empty() ? "" : ", "), name);
    return text.empty() ? "nothing" : text;
}

// "FILE: FAILED (what)".
std::string textOf(const TestFailure& failure) {
    std::string line, why;
    appendEscaped(line, failure.file);
    switch (failure.kind) {
        case TestFailure::Kind::found:
            why = "clean, but has " + joined(failure.found);
            break;
        case TestFailure::Kind::missing:
            why = "should have " + joined(failure.expected) + ", and has " + joined(failure.found);
            break;
        case TestFailure::Kind::unlisted:
            why = "not in the manifest; has " + joined(failure.found);
            break;
        case TestFailure::Kind::absent:
            why = "in the manifest, and not there";
            break;
        case TestFailure::Kind::unseen:
        case TestFailure::Kind::unreadable:
            break;
    }
    if (!failure.text.empty()) appendEscaped(why.append(why.empty() ? "" : "; "), failure.text);
    return line + ": FAILED (" + why + ")\n";
}

Json namesOf(const std::vector<std::string>& names) {
    Json list = Json::array();
    for (const std::string& name : names) list.push_back(json::textOf(name));
    return list;
}

std::string jsonOf(const TestFailure& failure) {
    Json object = {{"path", json::textOf(failure.file)},
                   {"failure", kWords[static_cast<std::size_t>(failure.kind)]},
                   {"expected", namesOf(failure.expected)},
                   {"found", namesOf(failure.found)}};
    if (!failure.text.empty()) object["text"] = json::textOf(failure.text);
    return json::lineOf(object) + "\n";
}

std::string jsonOf(const ReleaseTestTally& tally) {
    return json::lineOf(Json::object({{"summary",
                                       {{"set", tally.setId},
                                        {"signatures", tally.signatures},
                                        {"clean", tally.clean},
                                        {"infected", tally.infected},
                                        {"failures", tally.failures},
                                        {"interrupted", tally.interrupted}}}})) +
           "\n";
}

class SigTest : public Command {
public:
    explicit SigTest(CLI::App& sig)
        : Command(*sig.add_subcommand("test", "Test a set on clean files and on known malware before it is released")),
          _reading(app()) {
        addPath("SET", _options.engine.patternDir, "Pattern directory or compiled set");
        _clean = app().add_option("--clean", _options.clean, "Files and folders in which nothing may be found");
        _infected =
            app().add_option("--infected", _options.infected, "Folders with files in which names are to be found");
        _clean->type_name("PATH");
        _infected->type_name("DIR");
        _manifest = addTextOption(app(), "--manifest", _options.manifest, "FILE",
                                  "Says in each line a path below DIR, a tab, a name (default: manifest.tsv in DIR)");
        app().add_flag("--json", _json, "Report in lines of JSON");
        app().footer("Exit status: 0 all files passed, 1 some failed, 2 errors.");
        app().callback([this] { check(); });
    }

    ExitCode run() const override {
        ReleaseTestOptions options = _options;
        options.engine.limits = _reading.limits();
        options.engine.shallow = (_reading.flags() & VOLE_SCAN_SHALLOW) != 0;
        options.incompleteIsFine = _reading.incompleteIsFine();
        const ReleaseTestTally tally = testRelease(options, [this](const TestFailure& failure) {
            std::cout << (_json ? jsonOf(failure) : textOf(failure)) << std::flush;
        });
        if (_json) {
            std::cout << jsonOf(tally);
        } else {
            std::cout << counted(tally.signatures, "signature") << ", " << counted(tally.clean, "clean file") << ", "
                      << counted(tally.infected, "infected file") << ": "
                      << (tally.failures == 0 ? "passed" : std::to_string(tally.failures) + " failed")
                      << (tally.interrupted ? ", interrupted" : "") << "\n";
        }
        const ExitCode code = written(tally.failures != 0 ? kExitFound : kExitClean);
        dieIfInterrupted();
        return code;
    }

private:
    void check() const {
        if (_clean->count() + _infected->count() == 0) throw CLI::RequiredError("--clean or --infected");
        if (_manifest->count() != 0 && _infected->count() != 1)
            throw CLI::RequiresError("--manifest", "one --infected");
    }

    ReadingOptions _reading;
    ReleaseTestOptions _options;
    CLI::Option *_clean, *_infected, *_manifest;
    bool _json = false;
};

}  // namespace

std::unique_ptr<Command> newSigTest(CLI::App& sig) { return std::make_unique<SigTest>(sig); }
