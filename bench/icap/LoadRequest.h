// LoadRequest.h: a request as the bytes that are sent for it.
#ifndef BENCH_ICAP_LOAD_REQUEST_H
#define BENCH_ICAP_LOAD_REQUEST_H

#include <cstddef>
#include <optional>
#include <string>

enum class Mode { kRespmod, kReqmod };

struct RequestOptions {
    std::string authority;  // host:port
    std::string service;
    Mode mode = Mode::kRespmod;
    std::optional<std::size_t> preview;  // Bytes
    bool allow204 = false;
    bool allow206 = false;
};

// Built once and sent many times.
struct LoadRequest {
    std::string body;   // As a host would see it.
    std::string first;  // All that is sent at once.
    std::string rest;   // What follows "100 Continue", empty if nothing does.
    bool previews = false;
    bool allows204 = false;  // Outside previews, too.
    bool allows206 = false;
};

LoadRequest makeRequest(const RequestOptions& options, std::string body);

// The same bytes for the same size, and nothing that a signature would be of or that compresses.
std::string fillerBody(std::size_t size);

#endif  // BENCH_ICAP_LOAD_REQUEST_H
