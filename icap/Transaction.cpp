#include "Transaction.h"

#include <fnmatch.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "HttpText.h"
#include "VoleLibrary.h"

namespace icap {
namespace {

bool matchesAny(const std::vector<std::string>& patterns, std::string_view contentType) {
    const std::string type = lowerCase(trimmed(contentType.substr(0, contentType.find(';'))));
    return std::ranges::any_of(patterns, [&](const std::string& pattern) {
        return !type.empty() && ::fnmatch(pattern.c_str(), type.c_str(), 0) == 0;
    });
}

}  // namespace

Transaction::Transaction(Service& service, Message message, std::string client, int fd)
    : _service(service),
      _message(std::move(message)),
      _client(std::move(client)),
      _set(service.signatures()),
      _watched(service.clients(), fd),
      _body(service.settings().bodyMemory, service.settings().tempDir),
      _passesUnseen(matchesAny(service.settings().passTypes, _message.contentType)) {
    if (!_set) _failure = "no signatures are loaded";
}

void Transaction::receive(std::span<const char> bytes) noexcept {
    _received += bytes.size();
    // What is not going to be looked into is not kept either: it would take all of the disk.
    if (!_failure.empty() || isTooLarge()) return;
    try {
        _body.write(bytes);
    } catch (const std::exception& failure) {
        _failure = failure.what();
    }
}

bool Transaction::isTooLarge() const {
    const std::uint64_t most = _service.settings().limits.max_content;
    return most != 0 && _received > most;
}

const Verdict& Transaction::verdict() {
    if (!_verdict) _verdict = judgeBody();
    return *_verdict;
}

Verdict Transaction::judgeBody() {
    const Settings& settings = _service.settings();
    FileReport report;
    report.counters.bytesRead = _received;
    if (isTooLarge()) {
        report.outcome = Outcome::incomplete;
        report.reasons.push_back(reasonFor(VOLE_REASON_SIZE_LIMIT, "the body is larger than the limit"));
    }
    Verdict verdict{Action::pass, "unseen", "", ""};
    try {
        if (_failure.empty() && !_passesUnseen) {
            if (!isTooLarge()) report = Inspection(*_set->scanners, settings, _watched).inspect(_message, _body);
            verdict = judge(report, settings);
        }
    } catch (const std::exception& error) {
        _failure = error.what();
    }
    if (!_failure.empty()) verdict = failure(_failure, settings);
    _service.record(_message, _client, report, verdict);
    return verdict;
}

const std::string& Transaction::makePage() { return _page.emplace(_service.pages().render(verdict(), _message.url)); }

std::size_t Transaction::give(std::span<char> buffer) {
    if (_leavesBody) return 0;
    if (!_page) return _body.read(buffer);
    const std::size_t count = _page->copy(buffer.data(), buffer.size(), _pageGiven);
    _pageGiven += count;
    return count;
}

}  // namespace icap
