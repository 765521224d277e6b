#include "LoadRequest.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view kLastChunk = "0\r\n\r\n";
constexpr std::string_view kLastChunkOfAll = "0; ieof\r\n\r\n";

std::string chunkOf(std::string_view bytes) {
    if (bytes.empty()) return {};
    std::array<char, 32> size{};
    std::snprintf(size.data(), size.size(), "%zx\r\n", bytes.size());
    return size.data() + std::string(bytes) + "\r\n";
}

// The encapsulated headers, and the ICAP header that says where each begins.
struct Encapsulation {
    std::string index;
    std::string headers;
};

Encapsulation encapsulate(Mode mode, std::size_t bodySize) {
    const std::string entity =
        "Content-Type: application/octet-stream\r\nContent-Length: " + std::to_string(bodySize) + "\r\n\r\n";
    if (mode == Mode::kReqmod) {
        const std::string request = "POST http://origin.example/upload HTTP/1.1\r\nHost: origin.example\r\n" + entity;
        return {"req-hdr=0, req-body=" + std::to_string(request.size()), request};
    }
    const std::string request = "GET http://origin.example/download.bin HTTP/1.1\r\nHost: origin.example\r\n\r\n";
    const std::string headers = request + "HTTP/1.1 200 OK\r\n" + entity;
    return {"req-hdr=0, res-hdr=" + std::to_string(request.size()) + ", res-body=" + std::to_string(headers.size()),
            headers};
}

}  // namespace

LoadRequest makeRequest(const RequestOptions& options, std::string body) {
    const Encapsulation encapsulation = encapsulate(options.mode, body.size());
    const std::string url = "icap://" + options.authority + "/" + options.service;
    LoadRequest request;
    request.previews = options.preview.has_value();
    request.allows204 = options.allow204;
    request.allows206 = options.allow206;
    request.first = (options.mode == Mode::kReqmod ? "REQMOD " : "RESPMOD ") + url + " ICAP/1.0\r\n";
    request.first += "Host: " + options.authority + "\r\nUser-Agent: icap-load\r\n";
    if (options.allow204 || options.allow206) {
        request.first += std::string("Allow: ") + (options.allow204 ? "204" : "") +
                         (options.allow204 && options.allow206 ? ", " : "") + (options.allow206 ? "206" : "") + "\r\n";
    }
    if (options.preview) request.first += "Preview: " + std::to_string(*options.preview) + "\r\n";
    request.first += "Encapsulated: " + encapsulation.index + "\r\n\r\n" + encapsulation.headers;

    const std::size_t atOnce = std::min(options.preview.value_or(body.size()), body.size());
    const bool all = atOnce == body.size();
    request.first += chunkOf(std::string_view(body).substr(0, atOnce));
    request.first += options.preview && all ? kLastChunkOfAll : kLastChunk;
    if (!all) request.rest = chunkOf(std::string_view(body).substr(atOnce)) + std::string(kLastChunk);
    request.body = std::move(body);
    return request;
}

std::string fillerBody(std::size_t size) {
    std::mt19937 random(12345);
    std::string body(size, '\0');
    std::generate(body.begin(), body.end(), [&random] { return static_cast<char>(random() >> 24); });
    return body;
}
