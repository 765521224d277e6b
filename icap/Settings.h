// Settings: the service's options, as they stand in the server's configuration file with "vole." in front.
//   Errors:  SettingError, with a text for people that names neither file nor line: the server knows those.
//   Threads: one at a time while it is read; afterwards it does not change.
#ifndef VOLE_ICAP_SETTINGS_H
#define VOLE_ICAP_SETTINGS_H

#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "vole.h"

namespace icap {

struct SettingError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

constexpr std::size_t kReasonCodes = 64;  // More than the interface has, so that later ones find room.

// A reason of the service's own: a range of a larger file, which nobody can judge.
constexpr std::string_view kPartialContent = "partial";

// Whether contents are looked at in processes of their own: never, where the system allows it, or not at all elsewhere.
enum class Isolation { off, on, required };

struct Settings {
    Settings();

    // Whether a body of which something was not seen for this reason, by its word, does not pass.
    bool blocks(std::string_view reason) const;

    std::string patternDir;  // Needed; all else has a default.
    bool strictLoad = false;
    std::chrono::seconds watchInterval{0};  // Between two looks at the directory; 0: none.

    Isolation isolation = Isolation::off;
    vole_limits limits = VOLE_LIMITS_INIT;
    std::uint64_t bodyMemory = 1024 * 1024;  // Bytes of one body that are kept in memory; the rest goes to a file.
    std::string tempDir;                     // For that file; empty: the server's.

    std::bitset<kReasonCodes> blocked;   // By vole_reason_code: what was not seen for this reason does not pass.
    bool passesPartial = true;           // What has kPartialContent for a reason.
    bool passesFailures = false;         // Contents that could not be scanned at all.
    std::vector<std::string> passTypes;  // Media types that are not scanned, lower case, "*" stands for any text.

    int preview = 4096;  // Bytes that clients are asked for in advance.
    std::chrono::seconds optionsTtl{300};
    bool earlyHeaders = false;

    std::string templateDir;  // Empty: the built-in pages.
    std::string findingsLog;  // Empty: none.
    std::string metricsFile;  // Empty: none.
};

// One option. `apply` gets the words behind the name.
struct SettingOption {
    const char* name;
    const char* help;
    void (*apply)(Settings& settings, std::span<const std::string_view> words);
};

std::span<const SettingOption> settingOptions();

// What an answer depends on besides the set: the same text for the same limits and rules.
std::string policyKey(const Settings& settings);

}  // namespace icap

#endif  // VOLE_ICAP_SETTINGS_H
