// LoadRun.h: many connections that send requests to an ICAP server for some time, one after the other on each.
#ifndef BENCH_ICAP_LOAD_RUN_H
#define BENCH_ICAP_LOAD_RUN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LatencyHistogram.h"
#include "LoadRequest.h"

struct LoadOptions {
    std::string host = "127.0.0.1";
    std::string port = "1344";
    std::size_t connections = 8;
    double seconds = 10;
    double timeout = 30;                // Seconds that a request may take.
    std::optional<bool> expectedFound;  // Without it, any verdict is right.
};

// Why a request got no verdict.
enum class Failure { kRefused, kClosed, kTimedOut, kMalformed, kStatus };
inline constexpr std::array<const char*, 5> kFailureNames{"refused", "closed", "timedOut", "malformed", "status"};

struct Tally {
    std::uint64_t requests = 0;  // Those that got a verdict.
    std::uint64_t found = 0;
    std::uint64_t wrongVerdicts = 0;
    std::uint64_t alteredBodies = 0;  // Of clean replies: not what was sent.
    std::uint64_t reconnects = 0;
    std::array<std::uint64_t, kFailureNames.size()> failures{};
    std::map<int, std::uint64_t> statuses;
    std::map<std::string, std::uint64_t> isTags;  // The first few.
    std::string lastFailure;
    LatencyHistogram latency;
    double seconds = 0;

    std::uint64_t allFailures() const;
};

// Runs on the calling thread, until the time is over or SIGINT or SIGTERM came; what is under way then is waited for.
// Throws std::runtime_error when there is no such host, or the machine has no descriptors left.
Tally runLoad(const LoadOptions& options, const std::vector<LoadRequest>& requests);

#endif  // BENCH_ICAP_LOAD_RUN_H
