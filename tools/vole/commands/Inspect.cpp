#include "Inspect.h"

#include <unistd.h>

#include <iostream>

#include "Inspection.h"
#include "SearchOptions.h"

namespace {

class Inspect : public Command {
public:
    explicit Inspect(CLI::App& program)
        : Command(*program.add_subcommand("inspect", "Show what the engine sees in files")), _search(app()) {
        app().footer(
            "Exit status: 0 all was seen and nothing found, 1 something found, 2 errors, or something was not seen.");
        _files = app().add_option("FILE", "Files to look into; - is standard input");
        _files->type_name("")->required()->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
        app().add_flag("--shallow", _options.shallow,
                       "Read archives by their formats' rules only, and do not look for members\n"
                       "where other unpackers may find some");
        _json = app().add_flag("--json", _options.json, "Report in lines of JSON");
        _extract = addTextOption(app(), "--extract", _options.extractTo, "DIR",
                                 "Write all members, infected ones too, to new files in DIR, which is made when it is\n"
                                 "missing");
        _normalised = app().add_flag("--normalised", _options.normalised,
                                     "Write nothing but the normalised texts: safe to read on a terminal, else byte\n"
                                     "by byte");
        app().callback([this] { check(); });
    }

    ExitCode run() const override {
        InspectOptions options = _options;
        options.limits = _search.limits();
        options.escapes = ::isatty(STDOUT_FILENO) == 1;
        const auto signatures = _search.load();
        return inspectFiles(signatures.get(), options, _files->results(), std::cout);
    }

private:
    void check() {
        for (const CLI::Option* const other : {_json, _extract}) {
            const bool isBoth = _normalised->count() != 0 && other->count() != 0;
            if (isBoth) throw CLI::ExcludesError(_normalised->get_name(), other->get_name());
        }
        _search.applySettings();
    }

    SearchOptions _search;
    InspectOptions _options;
    CLI::Option *_files, *_json, *_extract, *_normalised;
};

}  // namespace

std::unique_ptr<Command> newInspect(CLI::App& program) { return std::make_unique<Inspect>(program); }
