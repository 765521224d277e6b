// SigCommand: "vole sig", what is done with sets of signatures themselves: its words, and what they do.
#ifndef VOLE_TOOL_SIG_COMMAND_H
#define VOLE_TOOL_SIG_COMMAND_H

#include <CLI/CLI.hpp>
#include <string>

#include "ScanCommand.h"

class SigCommand {
public:
    // Adds the words to the program's. Borrows the program's parser.
    explicit SigCommand(CLI::App& app);

    // Whether that is what the parser has found.
    bool isAsked() const { return _sig.parsed(); }

    // Answers on standard output. Throws LoadError.
    ExitCode run() const;

private:
    ExitCode compile() const;
    ExitCode verify() const;

    CLI::App& _sig;
    CLI::App& _compile;
    CLI::App& _verify;
    std::string _source;
    std::string _output;
    bool _strict = false;
};

#endif  // VOLE_TOOL_SIG_COMMAND_H
