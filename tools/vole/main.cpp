// main.cpp: the words of the command line. What they do is in the command files beside this one.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "Interruption.h"
#include "Messages.h"
#include "ScanCommand.h"
#include "voleeng.h"

namespace {

std::string versionText() { return std::string("vole " VOLE_VERSION "\n") + getVersion(); }

// With standard descriptors closed, files opened later would take their numbers and receive our output. The closed
// ones are opened read-only, so that writing to them fails.
void occupyStandardDescriptors() {
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO) fd = ::open("/dev/null", O_RDONLY);
    if (fd > STDERR_FILENO) ::close(fd);
}

// The parser takes "[a,b]" for a list of values, "++" for the end of a command, and no path behind a "--" that follows
// another path. "./[a,b]" names the same file and is left alone; every value that may begin so is a path.
bool readsAsSyntax(std::string_view argument, bool behindMark) {
    return argument.starts_with('[') || argument == "++" || (behindMark && argument.starts_with('-'));
}

// The arguments as the parser wants them, last one first.
std::vector<std::string> plainArguments(int argc, char** argv) {
    std::vector<std::string> arguments;
    bool behindMark = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--" && !behindMark) {
            behindMark = true;
        } else {
            arguments.push_back(readsAsSyntax(argument, behindMark) ? "./" + argument : argument);
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
        addScan();
    }

    // What is to be returned without any command being run; -1 when there is a command to run.
    int parse(int argc, char** argv) {
        try {
            _app.parse(plainArguments(argc, argv));
        } catch (const CLI::ParseError& outcome) {
            const bool answered = _app.exit(outcome) == 0;  // --help or --version
            return answered && std::cout.flush() ? kExitClean : kExitErrors;
        }
        return -1;
    }

    int run() {
        // Taken as they were typed: a bound vector would be empty for a file named "{}".
        _scanOptions.paths = _paths->results();
        const ExitCode code = runScan(_scanOptions);
        dieIfInterrupted();
        return code;
    }

private:
    void addScan() {
        CLI::App* scan = _app.add_subcommand("scan", "Scan files, and folders with all that is in them");
        scan->footer(
            "Exit status: 0 nothing found, 1 something found, 2 errors and nothing found. A name on the false-alarm\n"
            "list is reported as ALLOWED and is no finding.\n"
            "Links are followed when named as PATH, not inside folders.\n"
            "SIGHUP, SIGINT and SIGTERM end the run after the current file, with its report so far; then the program\n"
            "dies by that signal (128 + its number to a shell). A second one ends it at once.");
        EngineOptions& engine = _scanOptions.engine;
        // An unset variable of a script must not stand for the default.
        const CLI::Validator notEmpty(
            [](const std::string& value) { return std::string(value.empty() ? "must not be empty" : ""); }, "");
        scan->add_option("-d,--patterns", engine.patternDir,
                         "Pattern directory (default: the bundled starter patterns)")
            ->type_name("DIR")
            ->check(notEmpty);
        scan->add_flag("-i,--infected", _scanOptions.onlyFindings, "List FOUND, ALLOWED and errors only");
        scan->add_flag("--no-summary", _scanOptions.noSummary, "Leave the closing summary out");
        CLI::Option* limits =
            scan->add_flag("--limits", _scanOptions.limits, "Print the limits on unpacking that are in force");
        scan->add_flag("--debug", engine.diagnostics, "Print the engine's diagnostics to standard error");
        scan->add_option("--dump", engine.dumpDir,
                         "Write all members taken out of archives, infected ones too, below DIR, which is made\n"
                         "when it is missing: ARCHIVE.unar/MEMBER. Limits on unpacking hold")
            ->type_name("DIR")
            ->check(notEmpty);
        _paths = scan->add_option("PATH", "Files and folders to scan");
        _paths->type_name("")->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        scan->callback([this, limits] {
            if (_paths->count() == 0 && limits->count() == 0) throw CLI::RequiredError(_paths->get_name());
        });
    }

    CLI::App _app{"Scans files for known malware with the Vole Engine.", "vole"};
    CLI::Option* _paths = nullptr;
    ScanOptions _scanOptions;
};

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    try {
        CommandLine commandLine;
        const int answered = commandLine.parse(argc, argv);
        return answered >= 0 ? answered : commandLine.run();
    } catch (const std::exception& error) {
        complain(error.what());
        return kExitErrors;
    }
}
