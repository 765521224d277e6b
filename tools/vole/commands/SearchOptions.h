// SearchOptions.h: options that several words have, with the same names, values and defaults: what is searched for, and
// within which limits.
#ifndef VOLE_TOOL_SEARCH_OPTIONS_H
#define VOLE_TOOL_SEARCH_OPTIONS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "VoleLibrary.h"
#include "vole.h"

// An unset variable of a script must not stand for the default.
const CLI::Validator& notEmpty();

// Takes over an option's value, or says what is wrong with it: "must be a number".
using ReadValue = std::function<std::string(const std::string& text)>;

CLI::Option* addValueOption(CLI::App& app, const std::string& names, const char* placeholder, const std::string& help,
                            ReadValue read);
CLI::Option* addTextOption(CLI::App& app, const char* names, std::string& value, const char* placeholder,
                           const char* help);

// One for each limit. What the limits are is shown as the default.
std::vector<CLI::Option*> addLimitOptions(CLI::App& app, vole_limits& limits);

// The signatures and limits of a command that scans. What the command line leaves open is as "vole scan" has it: what
// the settings file says, if there is one, else the starter patterns and the library's limits.
class SearchOptions {
public:
    explicit SearchOptions(CLI::App& app);

    // After the command line was read. Throws SettingsError, CLI::ParseError.
    void applySettings();

    // Throws LoadError.
    SignaturesHandle load() const;
    const vole_limits& limits() const { return _limits; }

private:
    std::string _patterns, _settingsFile;
    vole_limits _limits = VOLE_LIMITS_INIT;
    std::vector<CLI::Option*> _settable;
    CLI::Option* _config;
};

#endif  // VOLE_TOOL_SEARCH_OPTIONS_H
