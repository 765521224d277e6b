#include "SigCommand.h"

#include <iostream>

#include "Escape.h"
#include "Messages.h"
#include "VoleLibrary.h"

namespace {

// One line on standard output.
ExitCode say(const std::string& path, const std::string& what, const SignaturesHandle& set) {
    std::string line;
    appendEscaped(line, path);
    const auto count = vole_signatures_count(set.get());
    std::cout << line << ": " << what << ", " << count << (count == 1 ? " signature, " : " signatures, ")
              << vole_signatures_id(set.get()) << "\n";
    return std::cout.flush() ? kExitClean : kExitErrors;
}

}  // namespace

SigCommand::SigCommand(CLI::App& app)
    : _sig(*app.add_subcommand("sig", "Compile and verify sets of signatures")),
      _compile(*_sig.add_subcommand("compile", "Write the signatures of a folder to one file, which loads at once")),
      _verify(*_sig.add_subcommand("verify", "Read a compiled set, or a folder, and compare all checksums in it")) {
    _sig.require_subcommand(1);
    _compile.add_option("DIR", _source, "Pattern directory")->type_name("")->required();
    _compile.add_option("-o,--output", _output, "File to write; what has its name is replaced when it is whole")
        ->type_name("FILE")
        ->required();
    _compile.add_flag("--strict", _strict, "Write nothing when a record is not usable");
    _verify.add_option("SET", _source, "Compiled set, or pattern directory")->type_name("")->required();
}

ExitCode SigCommand::run() const { return _compile.parsed() ? compile() : verify(); }

ExitCode SigCommand::compile() const {
    const auto set = loadSignatures(_source, _strict ? VOLE_LOAD_STRICT : 0, complain);
    if (const vole_error error = vole_signatures_save(set.get(), _output.c_str())) {
        throw LoadError("cannot write " + _output + ": " + vole_error_text(error));
    }
    return say(_output, "written", set);
}

ExitCode SigCommand::verify() const {
    return say(_source, "sound", loadSignatures(_source, VOLE_LOAD_STRICT, complain));
}
