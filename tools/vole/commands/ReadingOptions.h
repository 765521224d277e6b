// ReadingOptions.h: options of words that read files as a scan does, and take no signatures for it.
#ifndef VOLE_TOOL_READING_OPTIONS_H
#define VOLE_TOOL_READING_OPTIONS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "SearchOptions.h"
#include "vole.h"

class ReadingOptions {
public:
    explicit ReadingOptions(CLI::App& app) {
        addLimitOptions(app, _limits);
        app.add_flag("--shallow", _isShallow, "Read archives by their formats' rules only");
        addValueOption(app, "--incomplete", "error|ok",
                       "Whether it counts for the exit status that something was not seen (default: error)",
                       [this](const std::string& text) -> std::string {
                           _incompleteIsFine = text == "ok";
                           return text == "ok" || text == "error" ? "" : "must be ok or error";
                       });
    }
    ReadingOptions(const ReadingOptions&) = delete;
    ReadingOptions& operator=(const ReadingOptions&) = delete;

    const vole_limits& limits() const { return _limits; }
    std::uint32_t flags() const { return _isShallow ? VOLE_SCAN_SHALLOW : 0; }
    bool incompleteIsFine() const { return _incompleteIsFine; }

private:
    vole_limits _limits = VOLE_LIMITS_INIT;
    bool _isShallow = false;
    bool _incompleteIsFine = false;
};

// Files as they were typed: a bound vector would be empty for one named "{}".
inline CLI::Option* addFiles(CLI::App& app, const std::string& name, const std::string& help) {
    CLI::Option* const files = app.add_option(name, help);
    files->type_name("")->required()->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    return files;
}

#endif  // VOLE_TOOL_READING_OPTIONS_H
