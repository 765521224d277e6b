#include "SigCommand.h"

#include <algorithm>

namespace {

constexpr NewCommand* kCommands[] = {newSigCheck, newSigCompile, newSigDiff, newSigExplain, newSigFind,  newSigList,
                                     newSigMake,  newSigMerge,   newSigStat, newSigTest,    newSigVerify};

}  // namespace

SigCommand::SigCommand(CLI::App& program)
    : Command(*program.add_subcommand("sig", "Write, check and compile signatures")) {
    app().require_subcommand(1);
    for (NewCommand* const make : kCommands) _commands.push_back(make(app()));
}

ExitCode SigCommand::run() const {
    const auto asked = [](const auto& command) { return command->isAsked(); };
    return (*std::find_if(_commands.begin(), _commands.end(), asked))->run();
}
