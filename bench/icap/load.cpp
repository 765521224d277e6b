// load.cpp: icap-load, which puts an ICAP server under load and checks every reply.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "LoadRequest.h"
#include "LoadRun.h"

namespace {

constexpr int kExitBad = 1;
constexpr int kExitUsage = 2;

struct Options {
    LoadOptions load;
    RequestOptions request;
    std::size_t bodySize = 10240;
    std::vector<std::string> bodies;
    std::optional<std::uint64_t> maxFailures;
    bool json = false;
};

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) throw std::runtime_error(path + " cannot be read");
    return content;
}

std::vector<LoadRequest> makeRequests(const Options& options) {
    std::vector<LoadRequest> requests;
    for (const std::string& path : options.bodies) requests.push_back(makeRequest(options.request, contentOf(path)));
    if (requests.empty()) requests.push_back(makeRequest(options.request, fillerBody(options.bodySize)));
    return requests;
}

double rateOf(const Tally& tally) { return static_cast<double>(tally.requests) / tally.seconds; }

std::map<std::string, std::uint64_t> failuresByName(const Tally& tally) {
    std::map<std::string, std::uint64_t> failures;
    for (std::size_t i = 0; i < kFailureNames.size(); ++i) {
        if (tally.failures[i] != 0) failures[kFailureNames[i]] = tally.failures[i];
    }
    return failures;
}

void printJson(const Tally& tally) {
    nlohmann::ordered_json line = {
        {"requests", tally.requests},
        {"seconds", tally.seconds},
        {"rate", rateOf(tally)},
        {"p50Ms", tally.latency.milliseconds(0.5)},
        {"p99Ms", tally.latency.milliseconds(0.99)},
        {"maxMs", tally.latency.maxMilliseconds()},
        {"found", tally.found},
        {"wrongVerdicts", tally.wrongVerdicts},
        {"alteredBodies", tally.alteredBodies},
        {"failures", tally.allFailures()},
        {"failuresByKind", failuresByName(tally)},
        {"lastFailure", tally.lastFailure},
        {"reconnects", tally.reconnects},
    };
    for (const auto& [status, count] : tally.statuses) line["statuses"][std::to_string(status)] = count;
    line["isTags"] = tally.isTags;
    std::cout << line.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) << '\n';
}

template <class Counts>
void printCounts(const char* title, const Counts& counts) {
    std::cout << title;
    for (const auto& [what, count] : counts) std::cout << ' ' << what << ": " << count << ';';
    std::cout << '\n';
}

void printText(const Tally& tally) {
    std::printf("requests  %llu in %.1f s, %.1f a second\n", static_cast<unsigned long long>(tally.requests),
                tally.seconds, rateOf(tally));
    std::printf("latency   p50 %.2f ms, p99 %.2f ms, max %.2f ms\n", tally.latency.milliseconds(0.5),
                tally.latency.milliseconds(0.99), tally.latency.maxMilliseconds());
    std::fflush(stdout);
    std::cout << "verdicts  found " << tally.found << ", wrong " << tally.wrongVerdicts << ", altered bodies "
              << tally.alteredBodies << '\n';
    std::cout << "failures  " << tally.allFailures() << ", reconnects " << tally.reconnects << '\n';
    printCounts("kinds    ", failuresByName(tally));
    printCounts("statuses ", tally.statuses);
    printCounts("ISTags   ", tally.isTags);
    if (!tally.lastFailure.empty()) std::cout << "latest    " << tally.lastFailure << '\n';
}

void addWhere(CLI::App& app, Options& options) {
    app.add_option("--host", options.load.host, "The server")->capture_default_str();
    app.add_option("--port", options.load.port, "Its port")->capture_default_str();
    app.add_option("--service", options.request.service, "Name of the service")->required();
    app.add_option("--connections", options.load.connections, "Connections, each with one request under way")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    app.add_option("--seconds", options.load.seconds, "Begin requests for so long")
        ->check(CLI::Range(0.0, 86400.0))
        ->capture_default_str();
    app.add_option("--timeout", options.load.timeout, "Seconds after which a request has failed")
        ->check(CLI::Range(0.001, 3600.0))
        ->capture_default_str();
}

void addWhat(CLI::App& app, Options& options) {
    const std::map<std::string, Mode> modes{{"respmod", Mode::kRespmod}, {"reqmod", Mode::kReqmod}};
    const std::map<std::string, bool> verdicts{{"clean", false}, {"found", true}};
    app.add_option("--mode", options.request.mode, "respmod or reqmod")
        ->transform(CLI::CheckedTransformer(modes))
        ->default_str("respmod");
    app.add_option("--preview", options.request.preview, "Offer so many bytes of the body first");
    app.add_flag("--allow-204", options.request.allow204, "Let the server say that a body stays as it is");
    app.add_flag("--allow-206", options.request.allow206, "The same of the rest of a body");
    app.add_option("--body-size", options.bodySize, "Bytes of the body that is sent")
        ->check(CLI::Range(0, 1 << 30))
        ->capture_default_str();
    app.add_option("--body", options.bodies, "Send this file instead; may be given several times")
        ->allow_extra_args(false);
    app.add_option("--expect", options.load.expectedFound, "clean or found: any other verdict is wrong")
        ->transform(CLI::CheckedTransformer(verdicts));
    app.add_option("--max-failures", options.maxFailures, "More failures than that are bad, too");
    app.add_flag("--json", options.json, "Report as a line of JSON");
}

int report(const Options& options, const Tally& tally) {
    options.json ? printJson(tally) : printText(tally);
    const bool good = tally.wrongVerdicts == 0 && tally.alteredBodies == 0 &&
                      tally.allFailures() <= options.maxFailures.value_or(UINT64_MAX);
    return good && std::cout.flush() ? 0 : kExitBad;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        CLI::App app("Puts an ICAP server under load and checks every reply.", "icap-load");
        app.footer(
            "Exit status: 0 all verdicts right, 1 a verdict was wrong, a body that was not found infected came back\n"
            "altered, or too many requests failed, 2 the load could not be begun.");
        addWhere(app, options);
        addWhat(app, options);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& outcome) {
            return app.exit(outcome) == 0 ? 0 : kExitUsage;
        }
        options.request.authority = options.load.host + ":" + options.load.port;
        return report(options, runLoad(options.load, makeRequests(options)));
    } catch (const std::exception& error) {
        std::cerr << "icap-load: " << error.what() << '\n';
        return kExitUsage;
    }
}
