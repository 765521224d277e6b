// Command: one word of the command line, with the words and options behind it. Adds them to the program's parser when
// it is made, and does what they say.
#ifndef VOLE_TOOL_COMMAND_H
#define VOLE_TOOL_COMMAND_H

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Escape.h"
#include "ExitCode.h"
#include "Messages.h"

class Command {
public:
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    // Whether that is what the parser has found.
    bool isAsked() const { return _app.parsed(); }

    // Answers on standard output; what it cannot do, on standard error. Throws LoadError and std::bad_alloc.
    virtual ExitCode run() const = 0;

protected:
    // Borrows the parser of the word, which the one of the word before it owns.
    explicit Command(CLI::App& app) : _app(app) {}

    CLI::App& app() { return _app; }

    // What a record's line is printed as: as it stands, so that it can be used, but on a terminal, which it could
    // steer.
    static std::string printable(std::string_view record) {
        if (::isatty(STDOUT_FILENO) == 0) return std::string(record);
        std::string text;
        appendEscaped(text, record);
        return text;
    }

    // The code, if all that was said on standard output was written; else errors, but for a finding, and says so.
    static ExitCode written(ExitCode code) {
        if (std::cout.flush()) return code;
        complain("cannot write the report");
        return code == kExitFound ? code : kExitErrors;
    }

    // "1 file", "2 files".
    static std::string counted(std::uint64_t number, const char* what) {
        return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
    }

    // An argument without a name.
    CLI::Option* addPath(const char* name, std::string& path, const char* help) {
        return _app.add_option(name, path, help)->type_name("")->required();
    }
    CLI::Option* addPaths(const char* name, std::vector<std::string>& paths, const char* help) {
        return _app.add_option(name, paths, help)->type_name("")->required();
    }

private:
    CLI::App& _app;
};

using NewCommand = std::unique_ptr<Command>(CLI::App& parent);

#endif  // VOLE_TOOL_COMMAND_H
