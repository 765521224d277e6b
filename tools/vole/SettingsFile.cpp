#include "SettingsFile.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

std::string installedSettingsFile() {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path programDir = fs::read_symlink("/proc/self/exe", error).parent_path();
    if (error || fs::exists(programDir / "patterns", error)) return {};
    const fs::path file = (programDir / VOLE_SETTINGS_FROM_PROGRAM / "vole" / "scan.conf").lexically_normal();
    const bool isMissing = !fs::exists(file, error) && !error;
    return isMissing ? std::string() : file.string();
}

std::map<std::string, std::string> readSettings(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw SettingsError(std::generic_category().message(errno));
    std::map<std::string, std::string> settings;
    for (const CLI::ConfigItem& item : CLI::ConfigBase().from_config(file)) {
        if (!item.parents.empty()) throw SettingsError("there are no sections, as [" + item.parents.front() + "]");
        const bool isFirst = item.inputs.size() == 1 && settings.emplace(item.name, item.inputs.front()).second;
        if (!isFirst) throw SettingsError('"' + item.name + "\" has more than one value");
    }
    if (file.bad()) throw SettingsError("cannot be read");
    return settings;
}
