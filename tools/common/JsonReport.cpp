#include "JsonReport.h"

#include <cmath>

#include "JsonText.h"

namespace {

using json::Json;

constexpr int kVersion = 1;

Json findingsOf(const FileReport& report, bool allowed) {
    Json list = Json::array();
    for (const Finding& finding : report.findings) {
        if (finding.allowed == allowed) list.push_back(json::findingOf(finding));
    }
    return list;
}

Json reasonsOf(const FileReport& report) {
    Json list = Json::array();
    for (const Reason& reason : report.reasons) list.push_back(json::reasonOf(reason));
    return list;
}

Json countersOf(const Counters& counters) {
    return {{"bytes_read", counters.bytesRead},     {"bytes_unpacked", counters.bytesUnpacked},
            {"members", counters.members},          {"deepest_level", counters.deepestLevel},
            {"time_us", counters.timeMicroseconds}, {"findings", counters.findings},
            {"reasons", counters.reasons}};
}

}  // namespace

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

std::string jsonHeader(std::string_view engine, std::uint64_t signatures, std::string_view setId) {
    return json::lineOf({{"schema", "vole-scan"},
                         {"version", kVersion},
                         {"engine", engine},
                         {"signatures", signatures},
                         {"set", setId}});
}

std::string jsonLine(const FileReport& report) {
    Json object = {{"path", json::textOf(report.path)}, {"outcome", wordFor(report.outcome)}};
    if (report.outcome == Outcome::failed) object["error"] = json::textOf(report.error);
    object["findings"] = findingsOf(report, false);
    object["reasons"] = reasonsOf(report);
    object["allowed"] = findingsOf(report, true);
    object["counters"] = countersOf(report.counters);
    if (report.cached) object["cached"] = true;
    return json::lineOf(object);
}

std::string jsonSummary(const Tally& tally, double seconds, bool interrupted) {
    return json::lineOf(Json::object({{"summary",
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
    for (const auto& [key, text] : context) object[key] = json::textOf(text);
    object.update(json::findingOf(finding));
    object["allowed"] = finding.allowed;
    return json::lineOf(object);
}
