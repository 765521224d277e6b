#include "JsonReport.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "Utf8.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;

// JSON has characters only. What is none in a name is not replaced, because two names must never look the same: the
// name is then given by its bytes.
Json textOf(std::string_view text) {
    if (isUtf8(text)) return text;
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * text.size());
    for (const char c : text) hex += {kDigits[static_cast<unsigned char>(c) >> 4], kDigits[c & 0xF]};
    return Json::object({{"bytes", hex}});
}

Json memberOf(const MemberPath& member) {
    Json names = Json::array();
    for (const std::string& name : member) names.push_back(textOf(name));
    return names;
}

Json findingOf(const Finding& finding) {
    Json object = {{"name", textOf(finding.name)},
                   {"kind", finding.kind},
                   {"form", finding.form},
                   {"member", memberOf(finding.member)}};
    if (finding.offset) object["offset"] = *finding.offset;
    return object;
}

Json findingsOf(const FileReport& report, bool allowed) {
    Json list = Json::array();
    for (const Finding& finding : report.findings) {
        if (finding.allowed == allowed) list.push_back(findingOf(finding));
    }
    return list;
}

Json reasonsOf(const FileReport& report) {
    Json list = Json::array();
    for (const Reason& reason : report.reasons)
        list.push_back({{"code", reason.code}, {"member", memberOf(reason.member)}, {"text", textOf(reason.text)}});
    return list;
}

Json countersOf(const Counters& counters) {
    return {{"bytes_read", counters.bytesRead},     {"bytes_unpacked", counters.bytesUnpacked},
            {"members", counters.members},          {"deepest_level", counters.deepestLevel},
            {"time_us", counters.timeMicroseconds}, {"findings", counters.findings},
            {"reasons", counters.reasons}};
}

const char* wordFor(Outcome outcome) {
    switch (outcome) {
        case Outcome::clean:
            return "clean";
        case Outcome::found:
            return "found";
        case Outcome::incomplete:
            return "incomplete";
        case Outcome::failed:
            break;
    }
    return "failed";
}

// ASCII alone, so that no name can steer a terminal.
std::string lineOf(const Json& object) { return object.dump(-1, ' ', true); }

}  // namespace

std::string jsonHeader(std::string_view engine, std::uint64_t signatures, std::string_view setId) {
    return lineOf({{"schema", "vole-scan"},
                   {"version", kVersion},
                   {"engine", engine},
                   {"signatures", signatures},
                   {"set", setId}});
}

std::string jsonLine(const FileReport& report) {
    Json object = {{"path", textOf(report.path)}, {"outcome", wordFor(report.outcome)}};
    if (report.outcome == Outcome::failed) object["error"] = textOf(report.error);
    object["findings"] = findingsOf(report, false);
    object["reasons"] = reasonsOf(report);
    object["allowed"] = findingsOf(report, true);
    object["counters"] = countersOf(report.counters);
    if (report.cached) object["cached"] = true;
    return lineOf(object);
}

std::string jsonSummary(const Tally& tally, double seconds, bool interrupted) {
    return lineOf(Json::object({{"summary",
                                 {{"scanned", tally.scanned},
                                  {"infected", tally.infected},
                                  {"allowed", tally.allowed},
                                  {"incomplete", tally.incomplete},
                                  {"errors", tally.errors},
                                  {"cached", tally.cached},
                                  {"seconds", std::round(seconds * 1000) / 1000},
                                  {"interrupted", interrupted}}}}));
}

std::string jsonFinding(const Finding& finding, const std::vector<std::pair<std::string, std::string>>& context) {
    Json object = Json::object();
    for (const auto& [key, text] : context) object[key] = textOf(text);
    object.update(findingOf(finding));
    object["allowed"] = finding.allowed;
    return lineOf(object);
}
