// "vole sig compile" and "vole sig verify".
#include <iostream>

#include "Escape.h"
#include "Messages.h"
#include "SigCommand.h"
#include "VoleLibrary.h"

namespace {

class SetCommand : public Command {
protected:
    using Command::Command;

    // One line on standard output.
    static ExitCode say(const std::string& path, const char* what, const SignaturesHandle& set) {
        std::string line;
        appendEscaped(line, path);
        std::cout << line << ": " << what << ", " << counted(vole_signatures_count(set.get()), "signature") << ", "
                  << vole_signatures_id(set.get()) << "\n";
        return written(kExitClean);
    }
};

class SigCompile : public SetCommand {
public:
    explicit SigCompile(CLI::App& sig)
        : SetCommand(
              *sig.add_subcommand("compile", "Write the signatures of a folder to one file, which loads at once")) {
        addPath("DIR", _source, "Pattern directory");
        app()
            .add_option("-o,--output", _output, "File to write; what has its name is replaced when it is whole")
            ->type_name("FILE")
            ->required();
        app().add_flag("--strict", _strict, "Write nothing when a record is not usable");
    }

    ExitCode run() const override {
        const auto set = loadSignatures(_source, spareProcessor() | (_strict ? VOLE_LOAD_STRICT : 0), complain);
        if (const vole_error error = vole_signatures_save(set.get(), _output.c_str())) {
            throw LoadError("cannot write " + _output + ": " + vole_error_text(error));
        }
        return say(_output, "written", set);
    }

private:
    std::string _source, _output;
    bool _strict = false;
};

class SigVerify : public SetCommand {
public:
    explicit SigVerify(CLI::App& sig)
        : SetCommand(
              *sig.add_subcommand("verify", "Read a compiled set, or a folder, and compare all checksums in it")) {
        addPath("SET", _source, "Compiled set, or pattern directory");
    }

    ExitCode run() const override {
        return say(_source, "sound", loadSignatures(_source, spareProcessor() | VOLE_LOAD_STRICT, complain));
    }

private:
    std::string _source;
};

}  // namespace

std::unique_ptr<Command> newSigCompile(CLI::App& sig) { return std::make_unique<SigCompile>(sig); }
std::unique_ptr<Command> newSigVerify(CLI::App& sig) { return std::make_unique<SigVerify>(sig); }
