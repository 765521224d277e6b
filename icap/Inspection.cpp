#include "Inspection.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "ContentDecoder.h"
#include "Multipart.h"
#include "VoleLibrary.h"

namespace icap {
namespace {

constexpr std::size_t kMostCodings = 4;
constexpr std::size_t kMostParts = 1000;
constexpr std::size_t kMostListed = 50;  // Findings, and reasons.

// What is left of a limit, for which 0 means unlimited; so at least 1, with which the next member is the one too many.
std::uint64_t left(std::uint64_t limit, std::uint64_t used) {
    if (limit == 0) return 0;
    return limit > used ? limit - used : 1;
}

// Whether the reason is about the content's own form.
bool isAboutForm(std::string_view reason) {
    constexpr vole_reason_code kCodes[] = {VOLE_REASON_ENCRYPTED, VOLE_REASON_METHOD,  VOLE_REASON_UNSUPPORTED,
                                           VOLE_REASON_VOLUME,    VOLE_REASON_DAMAGED, VOLE_REASON_TRUNCATED,
                                           VOLE_REASON_CHECKSUM};
    return std::ranges::any_of(kCodes, [&](vole_reason_code code) { return reason == vole_reason_name(code); });
}

template <class Item>
void append(std::vector<Item>& all, std::vector<Item>&& more, const MemberPath& prefix) {
    for (Item& item : more) {
        if (all.size() == kMostListed) return;
        item.member.insert(item.member.begin(), prefix.begin(), prefix.end());
        all.push_back(std::move(item));
    }
}

}  // namespace

Inspection::Inspection(ScannerPool& scanners, const Settings& settings, ClientWatch::Client& client)
    : _scanners(scanners), _settings(settings), _client(client) {}

FileReport Inspection::inspect(const Message& message, BodyStore& body) {
    _report.path = message.url;
    BodyStore decoded(_settings.bodyMemory, _settings.tempDir);
    const bool isEncoded = decode(message, body, decoded);
    BodyStore& content = isEncoded ? decoded : body;
    if (const auto boundary = formBoundary(message.contentType)) {
        scanForm(content, *boundary);
        scanStore(content, Layer::wrapper);
    } else {
        scanStore(content, Layer::content);
    }
    if (isEncoded) scanStore(body, Layer::wrapper);
    if (message.isPartial) _report.reasons.push_back({std::string(kPartialContent), "a range of a larger file", {}});

    if (_report.outcome != Outcome::failed) {
        _report.outcome = isDecided() ? Outcome::found : _report.reasons.empty() ? Outcome::clean : Outcome::incomplete;
    }
    _report.counters.bytesRead = body.size();
    return std::move(_report);
}

// True when the body has codings; `decoded` is then what could be undone of them.
bool Inspection::decode(const Message& message, BodyStore& body, BodyStore& decoded) {
    const auto codings = codingsOf(message.contentEncoding);
    if (codings.empty()) return false;
    if (codings.size() > kMostCodings) {
        _report.reasons.push_back(reasonFor(VOLE_REASON_UNSUPPORTED, "too many content codings"));
        return true;
    }
    const DecodeLimits limits{_settings.limits.max_total, _settings.limits.max_ratio, [&] { return outOfTime(); }};
    BodyStore* from = &body;
    std::unique_ptr<BodyStore> stage;
    for (const std::string& coding : codings) {
        const bool isLast = &coding == &codings.back();
        auto next = isLast ? nullptr : std::make_unique<BodyStore>(_settings.bodyMemory, _settings.tempDir);
        BodyStore& to = isLast ? decoded : *next;
        auto trouble = decodeContent(coding, from->bytes().get(), limits, to);
        _report.counters.bytesUnpacked += to.size();
        if (trouble) _report.reasons.push_back(std::move(*trouble));
        stage = std::move(next);
        from = stage.get();
    }
    return true;
}

void Inspection::scanForm(BodyStore& body, const std::string& boundary) {
    const BodyBytes bytes = body.bytes();
    Form form = takeApart(bytes.get(), boundary, kMostParts);
    if (form.trouble) _report.reasons.push_back(std::move(*form.trouble));
    for (const FormPart& part : form.parts) {
        if (isDecided()) return;
        scanBytes(part.content, part.name);
        ++_report.counters.members;
    }
}

void Inspection::scanStore(BodyStore& body, Layer layer) {
    if (body.file() >= 0) {
        scan({}, layer, [&](vole_scanner* scanner) { return vole_scan_fd(scanner, body.file(), nullptr); });
        return;
    }
    const BodyBytes bytes = body.bytes();
    const auto data = bytes.get();
    scan({}, layer,
         [&](vole_scanner* scanner) { return vole_scan_buffer(scanner, data.data(), data.size(), nullptr); });
}

void Inspection::scanBytes(std::span<const char> bytes, const std::string& name) {
    scan({name}, Layer::content,
         [&](vole_scanner* scanner) { return vole_scan_buffer(scanner, bytes.data(), bytes.size(), nullptr); });
}

template <class Scan>
void Inspection::scan(const MemberPath& prefix, Layer layer, Scan call) {
    if (isDecided() || _report.outcome == Outcome::failed) return;
    if (auto reason = outOfTime()) {
        reason->member = prefix;
        if (_report.reasons.size() < kMostListed) _report.reasons.push_back(std::move(*reason));
        return;
    }
    ScannerHandle scanner = _scanners.take(limitsLeft());
    _client.setScanner(scanner.get());
    const vole_error error = call(scanner.get());
    _client.setScanner(nullptr);
    absorb(reportOf(scanner.get(), "", error), prefix, layer);
    if (error == VOLE_OK) _scanners.giveBack(std::move(scanner));
}

void Inspection::absorb(FileReport piece, const MemberPath& prefix, Layer layer) {
    if (piece.outcome == Outcome::failed) {
        _report.outcome = Outcome::failed;
        _report.error = piece.error;
        return;
    }
    if (layer == Layer::wrapper)
        std::erase_if(piece.reasons, [](const Reason& reason) { return isAboutForm(reason.code); });
    append(_report.findings, std::move(piece.findings), prefix);
    append(_report.reasons, std::move(piece.reasons), prefix);
    _report.counters.bytesUnpacked += piece.counters.bytesUnpacked;
    _report.counters.members += piece.counters.members;
    _report.counters.deepestLevel =
        std::max(_report.counters.deepestLevel, piece.counters.deepestLevel + prefix.size());
    _report.counters.timeMicroseconds += piece.counters.timeMicroseconds;
}

std::uint64_t Inspection::spentMilliseconds() const {
    const auto spent = std::chrono::steady_clock::now() - _start;
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(spent).count());
}

// Why nothing more may be looked at, if that is so.
std::optional<Reason> Inspection::outOfTime() const {
    if (_client.hasGone()) return reasonFor(VOLE_REASON_CANCELLED, "the client has gone");
    const std::uint64_t most = _settings.limits.max_time_ms;
    if (most != 0 && spentMilliseconds() >= most)
        return reasonFor(VOLE_REASON_TIME_LIMIT, "the time for one body is over");
    return std::nullopt;
}

vole_limits Inspection::limitsLeft() const {
    vole_limits limits = _settings.limits;
    limits.max_time_ms = left(limits.max_time_ms, spentMilliseconds());
    limits.max_total = left(limits.max_total, _report.counters.bytesUnpacked);
    limits.max_members = left(limits.max_members, _report.counters.members);
    return limits;
}

bool Inspection::isDecided() const {
    return std::ranges::any_of(_report.findings, [](const Finding& finding) { return !finding.allowed; });
}

}  // namespace icap
