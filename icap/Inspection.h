// Inspection: all scans of one HTTP body, in one report: the body with its content codings undone, each part of a form,
// and what they came in, for signatures of that. The limits of the settings hold for all of it together.
//   Throws:  what BodyStore and LoadError tell of; the body was then not judged.
//   Threads: one at a time.
#ifndef VOLE_ICAP_INSPECTION_H
#define VOLE_ICAP_INSPECTION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "BodyStore.h"
#include "ClientWatch.h"
#include "FileReport.h"
#include "ScannerPool.h"
#include "Settings.h"
#include "vole.h"

namespace icap {

// What the headers of an HTTP message say of its body.
struct Message {
    std::string method, url;
    std::string contentType, contentEncoding;
    bool isPartial = false;  // Its body is a range of a larger file.
};

class Inspection {
public:
    // All of it must outlive this.
    Inspection(ScannerPool& scanners, const Settings& settings, ClientWatch::Client& client);

    FileReport inspect(const Message& message, BodyStore& body);

private:
    // A wrapper is scanned for signatures of itself; that it looks broken or foreign from outside says nothing.
    enum class Layer { content, wrapper };

    bool decode(const Message& message, BodyStore& body, BodyStore& decoded);
    void scanForm(BodyStore& body, const std::string& boundary);
    void scanStore(BodyStore& body, Layer layer);
    void scanBytes(std::span<const char> bytes, const std::string& name);
    template <class Scan>
    void scan(const MemberPath& prefix, Layer layer, Scan call);
    void absorb(FileReport piece, const MemberPath& prefix, Layer layer);
    std::uint64_t spentMilliseconds() const;
    std::optional<Reason> outOfTime() const;
    vole_limits limitsLeft() const;
    bool isDecided() const;

    ScannerPool& _scanners;
    const Settings& _settings;
    ClientWatch::Client& _client;
    const std::chrono::steady_clock::time_point _start = std::chrono::steady_clock::now();
    FileReport _report;
};

}  // namespace icap

#endif  // VOLE_ICAP_INSPECTION_H
