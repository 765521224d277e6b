#include "SearchOptions.h"

#include <utility>

#include "Limits.h"
#include "ScanCommand.h"
#include "SettingsFile.h"

const CLI::Validator& notEmpty() {
    static const CLI::Validator validator(
        [](const std::string& value) { return value.empty() ? "must not be empty" : ""; }, "");
    return validator;
}

CLI::Option* addValueOption(CLI::App& app, const std::string& names, const char* placeholder, const std::string& help,
                            ReadValue read) {
    const std::string name = names.substr(names.find("--"));
    const auto take = [read = std::move(read), name](const std::string& text) {
        const std::string problem = read(text);
        if (!problem.empty()) throw CLI::ValidationError(name, problem + ", not \"" + text + '"');
    };
    return app.add_option_function<std::string>(names, take, help)->type_name(placeholder);
}

CLI::Option* addTextOption(CLI::App& app, const char* names, std::string& value, const char* placeholder,
                           const char* help) {
    return app.add_option(names, value, help)->type_name(placeholder)->check(notEmpty());
}

std::vector<CLI::Option*> addLimitOptions(CLI::App& app, vole_limits& limits) {
    std::vector<CLI::Option*> options;
    for (const LimitOption& limit : limitOptions()) {
        const auto read = [&limits, &limit](const std::string& text) -> std::string {
            const auto value = parseLimit(limit, text);
            if (!value) return std::string("must be ") + descriptionOf(limit.unit);
            limit.set(limits, *value);
            return "";
        };
        const std::string usual = showLimit(limit.unit, limit.get(limits));
        options.push_back(addValueOption(app, std::string("--") + limit.name, placeholderOf(limit.unit),
                                         std::string(limit.help) + " (default: " + usual + ")", read));
        options.back()->group("Limits (SIZE with K, M or G; 0: unlimited)");
    }
    return options;
}

SearchOptions::SearchOptions(CLI::App& app) {
    CLI::Option* const patterns =
        addTextOption(app, "-d,--patterns", _patterns, "DIR",
                      "Pattern directory or compiled set (default: the bundled starter patterns)");
    _config = addTextOption(app, "--config", _settingsFile, "FILE",
                            "Take patterns and limits that are not given here from FILE (default: etc/vole/scan.conf\n"
                            "of the installation)");
    _settable = addLimitOptions(app, _limits);
    _settable.push_back(patterns);
}

void SearchOptions::applySettings() {
    const std::string file = _config->count() != 0 ? _settingsFile : installedSettingsFile();
    if (file.empty()) return;
    try {
        const auto settings = readSettings(file);
        for (CLI::Option* const option : _settable) {
            const auto setting = settings.find(option->get_lnames().front());
            if (setting == settings.end() || option->count() != 0) continue;
            option->add_result(setting->second);
            option->run_callback();
        }
    } catch (const std::runtime_error& error) {
        throw SettingsError(file + ": " + error.what());
    }
}

SignaturesHandle SearchOptions::load() const {
    return loadSignatures(_patterns.empty() ? defaultPatternDir() : _patterns, spareProcessor(), {});
}
