#include "Verdict.h"

#include <algorithm>

#include "HttpText.h"

namespace icap {
namespace {

constexpr const char* kMarkHeader = "X-Vole-Incomplete";

std::string joined(const MemberPath& member) {
    std::string path;
    for (const std::string& name : member) path += (path.empty() ? "" : "/") + name;
    return path;
}

Verdict incomplete(const FileReport& report, const Settings& settings) {
    const auto blocks = [&](const Reason& reason) { return settings.blocks(reason.code); };
    const auto blocking = std::ranges::find_if(report.reasons, blocks);
    const bool passes = blocking == report.reasons.end();
    const Reason& reason = passes ? report.reasons.front() : *blocking;
    return {passes ? Action::passMarked : Action::block, "incomplete", reason.code, joined(reason.member)};
}

}  // namespace

Verdict judge(const FileReport& report, const Settings& settings) {
    const auto counts = [](const Finding& finding) { return !finding.allowed; };
    const auto finding = std::ranges::find_if(report.findings, counts);
    if (finding != report.findings.end()) return {Action::block, "found", finding->name, joined(finding->member)};
    if (report.outcome == Outcome::clean) return {Action::pass, "clean", "", ""};
    if (report.outcome == Outcome::incomplete && !report.reasons.empty()) return incomplete(report, settings);
    return failure(report.error, settings);
}

Verdict failure(const std::string& error, const Settings& settings) {
    return {settings.passesFailures ? Action::passMarked : Action::fail, "failed", error, ""};
}

std::vector<std::string> Verdict::headers() const {
    if (action == Action::pass || action == Action::fail) return {};
    if (action == Action::passMarked) return {mark()};
    const bool isInfection = word == "found";
    // A semicolon ends the name for those who read it; headerSafe() leaves none.
    const std::string name = headerSafe(isInfection ? threat : "Incomplete." + threat);
    const std::string place = member.empty() ? "-" : headerSafe(member);
    return {"X-Infection-Found: Type=" + std::string(isInfection ? "0" : "2") + "; Resolution=2; Threat=" + name + ";",
            "X-Virus-ID: " + name, "X-Violations-Found: 1\r\n\t" + place + "\r\n\t" + name + "\r\n\t0\r\n\t2"};
}

std::string Verdict::mark() const {
    // Why it failed is for the server's log: clients are not to learn about its folders.
    return std::string(kMarkHeader) + ": " + headerSafe(word == "failed" ? word : threat) +
           "; member=" + (member.empty() ? "-" : headerSafe(member));
}

}  // namespace icap
