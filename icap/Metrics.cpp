#include "Metrics.h"

#include <prometheus/text_serializer.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "Server.h"
#include "Settings.h"
#include "vole.h"

namespace icap {

void Metrics::Count::add(std::uint64_t number) const {
    counter->Increment(static_cast<double>(number));
    addToStatistics(id, number);
}

Metrics::Count Metrics::newCount(prometheus::Family<prometheus::Counter>& family, const prometheus::Labels& labels,
                                 const std::string& serverLabel) {
    return {&family.Add(labels), newStatistic(serverLabel)};
}

prometheus::Family<prometheus::Counter>& Metrics::newFamily(const char* name, const char* help) {
    return prometheus::BuildCounter().Name(name).Help(help).Register(_registry);
}

prometheus::Gauge& Metrics::newGauge(const char* name, const char* help) {
    return prometheus::BuildGauge().Name(name).Help(help).Register(_registry).Add({});
}

Metrics::Metrics() {
    auto& verdicts = newFamily("vole_requests_total", "Bodies by what came of them");
    for (const char* word : {"clean", "found", "incomplete", "failed", "unseen"})
        _verdicts[word] = newCount(verdicts, {{"verdict", word}}, std::string("VOLE BODIES ") + word);

    auto& reasons = newFamily("vole_incomplete_total", "Bodies of which something was not seen, by each reason");
    const auto addReason = [&](const std::string& word) {
        _reasons[word] = newCount(reasons, {{"reason", word}}, "VOLE INCOMPLETE " + word);
    };
    for (int code = VOLE_REASON_ENCRYPTED; code <= VOLE_REASON_IO; ++code)
        addReason(vole_reason_name(static_cast<vole_reason_code>(code)));
    addReason(std::string(kPartialContent));

    auto& reloads = newFamily("vole_reloads_total", "Loads of a set while serving");
    for (const char* word : {"ok", "failed"})
        _reloads[word] = newCount(reloads, {{"result", word}}, std::string("VOLE RELOADS ") + word);

    _bytes = newCount(newFamily("vole_body_bytes_total", "Bytes of all bodies"), {}, "VOLE BODY BYTES");
    _milliseconds =
        newCount(newFamily("vole_scan_milliseconds_total", "Time of all scans"), {}, "VOLE SCAN MILLISECONDS");
    _seconds = &prometheus::BuildHistogram()
                    .Name("vole_scan_seconds")
                    .Help("Time of one body's scans")
                    .Register(_registry)
                    .Add({}, prometheus::Histogram::BucketBoundaries{0.0001, 0.001, 0.01, 0.1, 1, 10, 60});
    _signatures = &newGauge("vole_signatures", "Records of the set in use");
    _memory = &newGauge("vole_signatures_bytes", "Memory that the set in use takes");
}

void Metrics::add(const Counts& counts, std::string_view name) {
    const auto count = counts.find(name);
    if (count != counts.end()) count->second.add(1);
}

void Metrics::countRequest(const Verdict& verdict, const FileReport& report) {
    constexpr double kMicroseconds = 1e6;
    add(_verdicts, verdict.word);
    std::set<std::string_view> codes;
    for (const Reason& reason : report.reasons) {
        if (codes.insert(reason.code).second) add(_reasons, reason.code);
    }
    _bytes.add(report.counters.bytesRead);
    _milliseconds.add(report.counters.timeMicroseconds / 1000);
    _seconds->Observe(static_cast<double>(report.counters.timeMicroseconds) / kMicroseconds);
}

void Metrics::countReload(bool succeeded) { add(_reloads, succeeded ? "ok" : "failed"); }

void Metrics::showSet(std::uint64_t signatures, std::uint64_t bytes) {
    _signatures->Set(static_cast<double>(signatures));
    _memory->Set(static_cast<double>(bytes));
}

void Metrics::write(const std::string& path) const {
    const std::string part = path + "." + std::to_string(::getpid());
    {
        std::ofstream file(part, std::ios::binary | std::ios::trunc);
        file << prometheus::TextSerializer().Serialize(_registry.Collect()) << std::flush;
        if (!file) throw std::system_error(errno, std::generic_category(), "cannot write " + part);
    }
    std::filesystem::rename(part, path);
}

}  // namespace icap
