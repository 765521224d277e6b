// Metrics: what the service counts: in the server's statistics, which its "info" service shows summed over all its
// processes, and for this process in the Prometheus text format.
//   Throws:  std::bad_alloc.
//   Threads: one for making it, before the server forks; then any.
#ifndef VOLE_ICAP_METRICS_H
#define VOLE_ICAP_METRICS_H

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "FileReport.h"
#include "Verdict.h"

namespace icap {

class Metrics {
public:
    Metrics();

    void countRequest(const Verdict& verdict, const FileReport& report);
    void countReload(bool succeeded);
    void showSet(std::uint64_t signatures, std::uint64_t bytes);

    // Puts everything in the Prometheus text format in the place of the file, at once and whole. Throws
    // std::system_error.
    void write(const std::string& path) const;

private:
    // A number that both sides are told of.
    struct Count {
        prometheus::Counter* counter = nullptr;
        int id = -1;  // in the server's statistics

        void add(std::uint64_t number) const;
    };
    using Counts = std::map<std::string, Count, std::less<>>;

    static Count newCount(prometheus::Family<prometheus::Counter>& family, const prometheus::Labels& labels,
                          const std::string& serverLabel);
    prometheus::Family<prometheus::Counter>& newFamily(const char* name, const char* help);
    prometheus::Gauge& newGauge(const char* name, const char* help);
    static void add(const Counts& counts, std::string_view name);

    prometheus::Registry _registry;
    Counts _verdicts, _reasons, _reloads;
    Count _bytes, _milliseconds;
    prometheus::Histogram* _seconds;
    prometheus::Gauge* _signatures;
    prometheus::Gauge* _memory;
};

}  // namespace icap

#endif  // VOLE_ICAP_METRICS_H
