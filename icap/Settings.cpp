#include "Settings.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "HttpText.h"
#include "Limits.h"

namespace icap {
namespace {

using Words = std::span<const std::string_view>;

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string_view oneWord(Words words) {
    if (words.size() != 1 || words.front().empty()) throw SettingError("one value is wanted");
    return words.front();
}

bool onOrOff(Words words, std::string_view yes = "on", std::string_view no = "off") {
    const std::string_view word = oneWord(words);
    if (word == yes) return true;
    if (word == no) return false;
    throw SettingError(quoted(word) + " is neither " + std::string(yes) + " nor " + std::string(no));
}

// A file or folder; the server changes its directory, so that only absolute paths mean something.
std::string absolutePath(Words words) {
    const std::string_view path = oneWord(words);
    if (path.front() != '/') throw SettingError(quoted(path) + " is not an absolute path");
    return std::string(path);
}

std::uint64_t wholeNumber(Words words, std::uint64_t most) {
    const std::string_view word = oneWord(words);
    std::uint64_t number = 0;
    const auto result = std::from_chars(word.data(), word.data() + word.size(), number);
    if (result.ec != std::errc() || result.ptr != word.data() + word.size() || number > most)
        throw SettingError(quoted(word) + " is not a number up to " + std::to_string(most));
    return number;
}

std::chrono::seconds seconds(Words words) {
    constexpr std::uint64_t kMostSeconds = 7 * 24 * 3600;
    return std::chrono::seconds(wholeNumber(words, kMostSeconds));
}

const LimitOption& limitNamed(std::string_view name) {
    return *std::ranges::find(limitOptions(), name, [](const LimitOption& option) { return option.name; });
}

std::uint64_t limitValue(const LimitOption& option, Words words) {
    const auto value = parseLimit(option, oneWord(words));
    if (!value) throw SettingError(quoted(words.front()) + " is not " + descriptionOf(option.unit));
    return *value;
}

void applyLimit(Settings& settings, std::string_view name, Words words) {
    const LimitOption& option = limitNamed(name);
    option.set(settings.limits, limitValue(option, words));
}

std::optional<std::size_t> reasonNamed(std::string_view name) {
    for (std::size_t code = 1; code < kReasonCodes; ++code) {
        if (vole_reason_name(static_cast<vole_reason_code>(code)) == name) return code;
    }
    return std::nullopt;
}

Isolation isolation(Words words) {
    if (words.size() == 1 && words.front() == "require") return Isolation::required;
    return onOrOff(words) ? Isolation::on : Isolation::off;
}

// "REASON... " or "all"; later lines win over earlier ones.
void setReasons(Settings& settings, Words words, bool blocked) {
    if (words.empty()) throw SettingError("reasons are wanted, or \"all\"");
    for (const std::string_view word : words) {
        if (word == "all") {
            if (blocked) settings.blocked.set();
            if (!blocked) settings.blocked.reset();
        } else {
            const auto code = reasonNamed(word);
            if (!code || word == "unknown") throw SettingError(quoted(word) + " is no reason");
            settings.blocked.set(*code, blocked);
        }
    }
}

constexpr SettingOption kOptions[] = {
    {"PatternDir", "Folder with the signatures, or a compiled set",
     [](Settings& s, Words w) { s.patternDir = absolutePath(w); }},
    {"StrictLoad", "on: refuse a set of which any record cannot be used",
     [](Settings& s, Words w) { s.strictLoad = onOrOff(w); }},
    {"WatchInterval", "Seconds between two looks at the folder for changes; 0: none",
     [](Settings& s, Words w) { s.watchInterval = seconds(w); }},
    {"Isolate", "on: scan in processes that can do nothing else; require: or not at all",
     [](Settings& s, Words w) { s.isolation = isolation(w); }},
    {"MaxSize", "Largest body that is looked into", [](Settings& s, Words w) { applyLimit(s, "max-size", w); }},
    {"MaxMember", "Largest archive member, unpacked", [](Settings& s, Words w) { applyLimit(s, "max-member", w); }},
    {"MaxTotal", "Bytes unpacked from one body", [](Settings& s, Words w) { applyLimit(s, "max-total", w); }},
    {"MaxMembers", "Archive members in one body", [](Settings& s, Words w) { applyLimit(s, "max-members", w); }},
    {"MaxDepth", "Archives within each other", [](Settings& s, Words w) { applyLimit(s, "max-depth", w); }},
    {"MaxRatio", "Unpacked to packed size of a member", [](Settings& s, Words w) { applyLimit(s, "max-ratio", w); }},
    {"TimeLimit", "Seconds for one body", [](Settings& s, Words w) { applyLimit(s, "time-limit", w); }},
    {"BodyMemory", "Bytes of a body that are kept in memory",
     [](Settings& s, Words w) { s.bodyMemory = limitValue(limitNamed("max-size"), w); }},
    {"TempDir", "Folder for larger bodies", [](Settings& s, Words w) { s.tempDir = absolutePath(w); }},
    {"Block", "Reasons for which an incomplete scan blocks", [](Settings& s, Words w) { setReasons(s, w, true); }},
    {"Pass", "Reasons in spite of which a body passes", [](Settings& s, Words w) { setReasons(s, w, false); }},
    {"PartialContent", "pass or block ranges of a larger file",
     [](Settings& s, Words w) { s.passesPartial = onOrOff(w, "pass", "block"); }},
    {"OnFailure", "block or pass what could not be scanned",
     [](Settings& s, Words w) { s.passesFailures = onOrOff(w, "pass", "block"); }},
    {"PassTypes", "Media types that are not scanned",
     [](Settings& s, Words w) {
         if (w.empty()) throw SettingError("media types are wanted");
         for (const std::string_view type : w) s.passTypes.push_back(lowerCase(type));
     }},
    {"Preview", "Bytes that clients are to send in advance",
     [](Settings& s, Words w) { s.preview = static_cast<int>(wholeNumber(w, 64 * 1024)); }},
    {"OptionsTTL", "Seconds for which clients may trust what they know of the service",
     [](Settings& s, Words w) { s.optionsTtl = seconds(w); }},
    {"EarlyHeaders", "on: headers leave before the body is judged",
     [](Settings& s, Words w) { s.earlyHeaders = onOrOff(w); }},
    {"TemplateDir", "Folder with pages of your own", [](Settings& s, Words w) { s.templateDir = absolutePath(w); }},
    {"FindingsLog", "File that gets a line of JSON for each finding",
     [](Settings& s, Words w) { s.findingsLog = absolutePath(w); }},
    {"MetricsFile", "File for a monitoring agent, in the Prometheus text format",
     [](Settings& s, Words w) { s.metricsFile = absolutePath(w); }},
};

}  // namespace

// What cannot be opened by anybody here passes, marked: blocking it would stop every .7z download. What should have
// been seen and was not does not pass: damage, bombs, and our own want of time, memory or disk.
Settings::Settings() {
    constexpr std::uint64_t kPatienceOfClientsMs = 60'000;
    limits.max_time_ms = kPatienceOfClientsMs;
    blocked.set();
    for (const vole_reason_code code :
         {VOLE_REASON_ENCRYPTED, VOLE_REASON_METHOD, VOLE_REASON_UNSUPPORTED, VOLE_REASON_VOLUME})
        blocked.reset(code);
}

std::span<const SettingOption> settingOptions() { return kOptions; }

bool Settings::blocks(std::string_view reason) const {
    if (reason == kPartialContent) return !passesPartial;
    const auto code = reasonNamed(reason);
    return !code || blocked.test(*code);
}

std::string policyKey(const Settings& settings) {
    return limitsKey(settings.limits) + settings.blocked.to_string() + (settings.passesPartial ? "p" : "b") +
           (settings.passesFailures ? "p" : "b");
}

}  // namespace icap
