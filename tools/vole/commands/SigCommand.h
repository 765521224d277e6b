// SigCommand: "vole sig" with the words behind it, each of which is a command in a file of its own.
#ifndef VOLE_TOOL_SIG_COMMAND_H
#define VOLE_TOOL_SIG_COMMAND_H

#include <memory>
#include <vector>

#include "Command.h"

NewCommand newSigCheck, newSigCompile, newSigDiff, newSigExplain, newSigFind, newSigList, newSigMake, newSigMerge,
    newSigStat, newSigTest, newSigVerify;

class SigCommand : public Command {
public:
    explicit SigCommand(CLI::App& program);

    ExitCode run() const override;

private:
    std::vector<std::unique_ptr<Command>> _commands;
};

#endif  // VOLE_TOOL_SIG_COMMAND_H
