// main.cpp: the words of the command line. What they do is in the command files beside this one.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Escape.h"
#include "Inspect.h"
#include "Interruption.h"
#include "Messages.h"
#include "ScanCommand.h"
#include "SearchOptions.h"
#include "SettingsFile.h"
#include "SigCommand.h"
#include "voleeng.h"

namespace {

std::string versionText() { return std::string("vole " VOLE_VERSION "\n") + getVersion(); }

// With standard descriptors closed, files opened later would take their numbers and receive our output. The closed
// ones are opened read-only, so that writing to them fails.
void occupyStandardDescriptors() {
    int fd = ::open("/dev/null", O_WRONLY);  // Standard input, if that is closed: reading it is to fail.
    if (fd > STDIN_FILENO) ::close(fd);
    fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) fd = ::open("/dev/null", O_RDONLY);
    if (fd > STDERR_FILENO) ::close(fd);
}

// What one content needed is kept for the next, up to this much, rather than given back, cleared and faulted in again.
void keepFreedMemory() {
    constexpr int kKept = 4 << 20, kMostThatMayBeKept = sizeof(void*) == 4 ? 512 << 10 : kKept;
    ::mallopt(M_TRIM_THRESHOLD, kKept);
    ::mallopt(M_MMAP_THRESHOLD, kMostThatMayBeKept);
}

// The parser takes "[a,b]" for a list of values, "++" for the end of a command, and no path behind a "--" that follows
// another path. "./[a,b]" names the same file and is left alone; every value that may begin so is a path, but those of
// some options.
bool takesText(std::string_view option, bool isFind) {
    constexpr std::string_view kOptions[] = {"--exclude", "--member", "--name", "--names"};
    // A flag elsewhere.
    if (option == "--text") return isFind;
    return std::find(std::begin(kOptions), std::end(kOptions), option) != std::end(kOptions);
}

bool readsAsSyntax(std::string_view argument, bool behindMark) {
    return argument.starts_with('[') || argument == "++" || (behindMark && argument.starts_with('-'));
}

// The arguments as the parser wants them, last one first.
std::vector<std::string> plainArguments(int argc, char** argv) {
    std::vector<std::string> arguments;
    const bool isFind = argc > 2 && argv[2] == std::string_view("find");
    bool behindMark = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool isText = !behindMark && takesText(argv[i - 1], isFind);
        if (argument == "--" && !behindMark) {
            behindMark = true;
        } else if (!behindMark && argument.starts_with("--") && argument.find('=') == argument.size() - 1) {
            // The parser would take the next argument for a value that is empty.
            arguments.push_back(argument.substr(0, argument.size() - 1));
            arguments.emplace_back();
        } else {
            arguments.push_back(!isText && readsAsSyntax(argument, behindMark) ? "./" + argument : argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

class CommandLine {
public:
    CommandLine() {
        _app.require_subcommand(1);
        _app.set_version_flag("--version", versionText, "Print the versions of program and engine, then exit");
        _app.failure_message([this](const CLI::App*, const CLI::Error& error) {
            std::string line = "vole: ";
            appendEscaped(line, error.what());
            return line + "; see vole " + wordAsked() + " --help\n";
        });
        addWhat();
        addHow();
        addIsolation();
        addLimits();
        addReport();
        addHostView();
        _scan.callback([this] { check(); });
    }

    // What is to be returned without any command being run; -1 when there is a command to run.
    int parse(int argc, char** argv) {
        try {
            _app.parse(plainArguments(argc, argv));
        } catch (const CLI::ParseError& outcome) {
            const bool answered = _app.exit(outcome) == 0;  // --help or --version
            return answered && std::cout.flush() ? kExitClean : kExitErrors;
        }
        if (_scan.parsed()) applySettings();
        return -1;
    }

    int run() {
        if (_sig.isAsked()) return _sig.run();
        if (_inspect->isAsked()) return _inspect->run();
        // Taken as they were typed: a bound vector would be empty for a file named "{}".
        _options.paths = _paths->results();
        _options.rules.excluded = _exclude->results();
        _options.engine.isolation = isolation();
        const ExitCode code = runScan(_options);
        dieIfInterrupted();
        return code;
    }

private:
    const char* wordAsked() const { return _sig.isAsked() ? "sig" : _inspect->isAsked() ? "inspect" : "scan"; }

    void addWhat() {
        _scan.footer(
            "Exit status: 0 nothing found, 1 something found, 2 nothing found, but errors or incomplete files. A name\n"
            "on the false-alarm list is reported as ALLOWED and is no finding.\n"
            "Links are followed when named as PATH, not inside folders.\n"
            "SIGHUP, SIGINT and SIGTERM end the run at once, with its report so far; then the program dies by that\n"
            "signal (128 + its number to a shell). A second one does not wait for the report.");
        _paths = _scan.add_option("PATH", "Files and folders to scan; - is standard input");
        _paths->type_name("")->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        _filesFrom = addText("--files-from", _listName, "FILE",
                             "Scan what a list names, too, a path a line; - is standard input");
        _scan.add_flag("-0,--null", _options.nullSeparated, "In that list, NULs stand between paths");
        _exclude = _scan.add_option("--exclude",
                                    "Leave out files and folders whose name fits the shell pattern, or whose path,\n"
                                    "when it has a slash; * fits slashes, too. May be given several times");
        _exclude->type_name("GLOB")->take_all()->check(notEmpty());
        _scan.add_flag("--one-file-system", _options.rules.oneFileSystem, "Do not enter folders on other file systems");
    }

    void addHow() {
        _settable.push_back(addText("-d,--patterns", _options.engine.patternDir, "DIR",
                                    "Pattern directory or compiled set (default: the bundled starter patterns)"));
        _settable.push_back(addValue("-j,--jobs", "N", "Files scanned at a time (default: one for each processor)",
                                     [this](const std::string& text) { return readJobs(text); }));
        _config = addText("--config", _settingsFile, "FILE",
                          "Take what is not given here from FILE (default: etc/vole/scan.conf of the installation)");
        _libraryOnly.push_back(addText("--cache", _options.engine.cache, "FILE",
                                       "Pass over files that did not change since a scan with the same signatures and\n"
                                       "limits found them clean. FILE remembers them"));
        _libraryOnly.push_back(_scan.add_flag("--all-matches", _options.engine.allMatches,
                                              "Go on behind a file's first finding, and list up to 1,000"));
        _libraryOnly.push_back(
            _scan.add_flag("--shallow", _options.engine.shallow,
                           "Read archives by their formats' rules only, and do not look for members\n"
                           "where other unpackers may find some"));
    }

    void addIsolation() {
        const auto problemWith = [](const std::string& word) {
            const bool isKnown = word == kWithoutWord || word == "auto" || word == "require" || word == "no";
            return isKnown ? "" : "must be auto, require or no, not \"" + word + '"';
        };
        _isolated =
            _scan.add_flag("--isolate", _isolate,
                           "Look at files in processes that can do nothing else, and tell when the system does not\n"
                           "allow that; with --isolate=require, look at none then (default: without a word then)");
        _isolated->check(CLI::Validator(problemWith, ""));
        _notIsolated = _scan.add_flag("--no-isolate", _isInProcess, "Look at files in this process");
        _libraryOnly.push_back(_isolated);
        _settable.push_back(_isolated);
    }

    void addLimits() {
        for (CLI::Option* const option : addLimitOptions(_scan, _options.engine.limits)) {
            _libraryOnly.push_back(option);
            _settable.push_back(option);
        }
        _limits = _scan.add_flag("--limits", _options.limits, "Print the limits that are in force");
    }

    void addReport() {
        _settable.push_back(
            addValue("--incomplete", "error|ok",
                     "Whether files that were not seen whole count for the exit status (default: error)",
                     [this](const std::string& text) {
                         _options.incompleteIsOk = text == "ok";
                         return text == "ok" || text == "error" ? "" : "must be ok or error";
                     }));
        _scan.add_flag("-i,--infected", _options.onlyFindings, "Leave clean files out of the report");
        _scan.add_flag("--no-summary", _options.noSummary, "Leave the closing summary out");
        _scan.add_flag("--no-progress", _options.noProgress, "Draw no progress line on a terminal");
        _json = _libraryOnly.emplace_back(_scan.add_flag("--json", _options.json, "Report in lines of JSON"));
        _scan.add_flag("--debug", _options.debug,
                       "Tell on standard error which signatures cannot be used, and every reason of incomplete files");
    }

    void addHostView() {
        _hostView = _scan.add_flag("--host-view", _options.hostView, "Scan by voleeng.h");
        _dump =
            addText("--dump", _options.dumpDir, "DIR",
                    "The same, and write all members taken out of archives, infected ones too, below DIR, which is\n"
                    "made when it is missing: ARCHIVE.unar/MEMBER");
        for (CLI::Option* const option : {_hostView, _dump}) {
            option->group("As a host of the older interface sees it (with the limits of voleeng.ini)");
        }
    }

    Isolation isolation() const {
        if (_isInProcess || _isolate == "no") return Isolation::no;
        if (_isolate.empty()) return Isolation::quietly;
        return _isolate == "require" ? Isolation::required : Isolation::yes;
    }

    CLI::Option* addValue(const std::string& names, const char* placeholder, const std::string& help, ReadValue read) {
        return addValueOption(_scan, names, placeholder, help, std::move(read));
    }

    CLI::Option* addText(const char* names, std::string& value, const char* placeholder, const char* help) {
        return addTextOption(_scan, names, value, placeholder, help);
    }

    std::string readJobs(const std::string& text) {
        constexpr unsigned kMostJobs = 1024;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), _options.jobs);
        const bool whole = error == std::errc() && end == text.data() + text.size();
        const bool good = whole && _options.jobs >= 1 && _options.jobs <= kMostJobs;
        return good ? "" : "must be a number from 1 to " + std::to_string(kMostJobs);
    }

    CLI::Option& settableAs(const std::string& name) {
        const auto fits = [&name](const CLI::Option* option) { return option->check_lname(name); };
        const auto option = std::find_if(_settable.begin(), _settable.end(), fits);
        if (option == _settable.end()) throw SettingsError("\"" + name + "\" cannot be set there");
        return **option;
    }

    void apply(const std::string& name, const std::string& value) {
        CLI::Option& option = settableAs(name);
        const bool isLibraryOnly = std::count(_libraryOnly.begin(), _libraryOnly.end(), &option) != 0;
        if (option.count() != 0 || (_options.hostView && isLibraryOnly)) return;
        option.add_result(value);
        option.run_callback();
    }

    // What the command line does not say.
    void applySettings() {
        const std::string file = _config->count() != 0 ? _settingsFile : installedSettingsFile();
        if (file.empty()) return;
        try {
            for (const auto& [name, value] : readSettings(file)) apply(name, value);
        } catch (const std::runtime_error& error) {
            throw SettingsError(file + ": " + error.what());
        }
    }

    // Without the parser's own means for it, which fill the help with lists.
    static void refuseTogether(const CLI::Option* a, const CLI::Option* b) {
        if (a->count() != 0 && b->count() != 0) throw CLI::ExcludesError(a->get_name(), b->get_name());
    }

    void check() {
        if (_paths->count() + _filesFrom->count() + _limits->count() == 0) {
            throw CLI::RequiredError(_paths->get_name());
        }
        for (const CLI::Option* const face : {_hostView, _dump}) {
            for (const CLI::Option* const other : _libraryOnly) refuseTogether(face, other);
        }
        refuseTogether(_limits, _json);
        refuseTogether(_isolated, _notIsolated);
        if (_options.nullSeparated && _filesFrom->count() == 0) throw CLI::RequiresError("--null", "--files-from");
        if (_filesFrom->count() != 0) _options.filesFrom = _listName;
        if (!_options.dumpDir.empty()) _options.hostView = true;
    }

    CLI::App _app{"Scans files for known malware with the Vole Engine.", "vole"};
    CLI::App& _scan = *_app.add_subcommand("scan", "Scan files, and folders with all that is in them");
    SigCommand _sig{_app};
    std::unique_ptr<Command> _inspect = newInspect(_app);
    ScanOptions _options;
    std::string _listName;
    static constexpr const char* kWithoutWord = "true";  // What the parser makes of a flag.
    std::string _isolate;                                // Empty: it was not given.
    bool _isInProcess = false;
    CLI::Option* _isolated = nullptr;
    CLI::Option* _notIsolated = nullptr;
    CLI::Option* _paths = nullptr;
    CLI::Option* _filesFrom = nullptr;
    CLI::Option* _exclude = nullptr;
    CLI::Option* _limits = nullptr;
    CLI::Option* _json = nullptr;
    CLI::Option* _config = nullptr;
    std::string _settingsFile;
    CLI::Option* _hostView = nullptr;
    CLI::Option* _dump = nullptr;
    std::vector<CLI::Option*> _settable;     // What a settings file may set.
    std::vector<CLI::Option*> _libraryOnly;  // What the older interface does not have.
};

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    keepFreedMemory();
    std::signal(SIGXFSZ, SIG_IGN);  // A file that may not grow is a failed write.
    try {
        CommandLine commandLine;
        const int answered = commandLine.parse(argc, argv);
        return answered >= 0 ? answered : commandLine.run();
    } catch (const std::exception& error) {
        complain(error.what());
        return kExitErrors;
    }
}
