// SettingsFile: what an administrator set for everybody who scans on a machine.
#ifndef VOLE_TOOL_SETTINGS_FILE_H
#define VOLE_TOOL_SETTINGS_FILE_H

#include <map>
#include <stdexcept>
#include <string>

// The file cannot be read, or has something in it that is no setting.
class SettingsError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The file that was installed with this program, found from where the program lies, so that the installation may be
// moved. Empty if there is none, and before installation: what lies above a build folder need not belong to its owner.
std::string installedSettingsFile();

// The lines `name = value` of the file `path`. "#" begins a comment, also behind a value, and a line of ";" is one; a
// value with blanks or commas in it stands in quotes. Throws SettingsError.
std::map<std::string, std::string> readSettings(const std::string& path);

#endif  // VOLE_TOOL_SETTINGS_FILE_H
