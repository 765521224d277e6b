// "vole sig explain".
#include <iostream>

#include "Explain.h"
#include "ReadingOptions.h"
#include "SigCommand.h"

namespace {

class SigExplain : public Command {
public:
    explicit SigExplain(CLI::App& sig)
        : Command(*sig.add_subcommand("explain", "Say why a record matches the contents of files, or does not")),
          _reading(app()) {
        app().footer(
            "Exit status: 0 it matches nothing, 1 it matches, 2 it matches nothing, but there were errors or\n"
            "incomplete files.");
        _arguments = addFiles(app(), "FILE",
                              "Files to compare a record with. In front of them, without --name: the record, a line\n"
                              "of a pattern file");
        app().add_flag("--hdb", _isMd5, "The record is one of an .hdb file, whatever it looks like");
        app().add_flag("--chk", _isCheckSum, "The record is one of a .chk file, whatever it looks like");
        _patterns =
            addTextOption(app(), "-d,--patterns", _dir, "DIR", "Take records from DIR, a pattern directory or file");
        _named = addTextOption(app(), "--name", _name, "NAME", "Those with this name");
        app().add_flag("--json", _json, "Report in lines of JSON");
        app().callback([this] { check(); });
    }

    ExitCode run() const override {
        ExplainTerms terms{_reading.limits(), _reading.flags(), _reading.incompleteIsFine(), _json};
        std::vector<std::string> files = _arguments->results();
        std::vector<KeptRecord> records;
        if (isNamed()) {
            records = recordsNamed(_dir, _name);
        } else {
            records.emplace_back(files.front(), kind());
            files.erase(files.begin());
        }
        const ExitCode code = explainFiles(records, files, terms, std::cout);
        return written(code);
    }

private:
    bool isNamed() const { return _named->count() != 0; }

    std::optional<RecordKind> kind() const {
        if (_isMd5) return RecordKind::md5;
        return _isCheckSum ? std::optional(RecordKind::checkSum) : std::nullopt;
    }

    void check() const {
        if (_isMd5 && _isCheckSum) throw CLI::ExcludesError("--hdb", "--chk");
        if (isNamed() && _patterns->count() == 0) throw CLI::RequiresError("--name", "--patterns");
        if (!isNamed() && _patterns->count() != 0) throw CLI::RequiresError("--patterns", "--name");
        if (isNamed() && (_isMd5 || _isCheckSum)) throw CLI::ExcludesError("--name", _isMd5 ? "--hdb" : "--chk");
        if (!isNamed() && _arguments->count() < 2) throw CLI::RequiredError("FILE");
    }

    ReadingOptions _reading;
    CLI::Option *_arguments, *_patterns, *_named;
    std::string _dir, _name;
    bool _isMd5 = false, _isCheckSum = false, _json = false;
};

}  // namespace

std::unique_ptr<Command> newSigExplain(CLI::App& sig) { return std::make_unique<SigExplain>(sig); }
