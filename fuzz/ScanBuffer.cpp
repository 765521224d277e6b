// Scans of the C interface, with limits and with a callback that may stop them: what the result, the counters and the
// events say has to agree, and to be the same when the scan is made again.
// Input: the content. Its last byte says which parameters are taken, its bytes before that are their values; so any
// file that ends with a zero byte is scanned without limits.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "Target.h"
#include "support/SignatureText.h"
#include "support/TempDir.h"
#include "vole.h"

namespace {

struct Parameters {
    explicit Parameters(std::string_view input) : end(input) {
        limits.max_time_ms = 0;
        limits.max_total = kMostUnpacked;
        allMatches = taken(0);
        if (taken(1)) stopAfter = value(1);
        if (taken(2)) limits.max_depth = value(2) % 4;
        if (taken(3)) limits.max_members = value(3);
        if (taken(4)) limits.max_member = value(4) * 16U;
        if (taken(5)) limits.max_total = 1 + value(5) * 64U;
        if (taken(6)) limits.max_ratio = value(6);
        if (taken(7)) limits.max_content = value(7) * 32U;
    }
    unsigned value(std::size_t back) const {
        return end.size() > back ? static_cast<unsigned char>(end[end.size() - 1 - back]) : 0;
    }
    bool taken(unsigned parameter) const { return value(0) >> parameter & 1; }

    static constexpr std::uint64_t kMostUnpacked = 16U << 20;
    std::string_view end;
    vole_limits limits = VOLE_LIMITS_INIT;
    bool allMatches;
    unsigned stopAfter = 0;  // Events; 0: never.
};

struct Events {
    const Parameters& parameters;
    std::uint64_t all = 0, entered = 0, done = 0, findings = 0, reasons = 0, bytes = 0, deepest = 0;
};

std::uint64_t readPath(const vole_path& path) {
    for (std::size_t i = 0; i < path.count; ++i) {
        require(path.components[i].data[path.components[i].size] == '\0');
        note({path.components[i].data, path.components[i].size + 1});
    }
    return path.count;
}

void readContent(const vole_content& content) {
    char bytes[64];
    const auto last = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(content.size, sizeof bytes));
    const std::uint64_t offset = content.size - static_cast<std::uint64_t>(last);
    require(vole_content_read(&content, offset, bytes, sizeof bytes) == last);
    note({bytes, static_cast<std::size_t>(last)});
    note(content.method);
}

int onEvent(void* context, const vole_event* event) {
    Events& events = *static_cast<Events*>(context);
    const vole_limits& limits = events.parameters.limits;
    require((event->type == VOLE_EVENT_FINDING) == (event->finding != nullptr));
    require((event->type == VOLE_EVENT_REASON) == (event->reason != nullptr));
    require((event->type == VOLE_EVENT_CONTENT) == (event->content != nullptr));
    if (event->content) readContent(*event->content);
    require(event->bytes_done >= events.bytes);
    events.bytes = event->bytes_done;
    const std::uint64_t level = readPath(event->member);
    require(limits.max_depth == 0 || level <= limits.max_depth);
    if (event->type == VOLE_EVENT_MEMBER_ENTERED) ++events.entered;
    if (event->type == VOLE_EVENT_MEMBER_DONE) {
        ++events.done;
        events.deepest = std::max(events.deepest, level);
        require(limits.max_member == 0 || event->size <= limits.max_member);
    }
    events.findings += event->type == VOLE_EVENT_FINDING;
    events.reasons += event->type == VOLE_EVENT_REASON;
    return ++events.all == events.parameters.stopAfter;
}

void checkAgreement(const vole_result* result, vole_outcome outcome, const Events& events) {
    const vole_counters& counters = *vole_result_counters(result);
    const vole_limits& limits = events.parameters.limits;
    require(events.findings == counters.findings && events.reasons == counters.reasons);
    require(events.done <= events.entered && events.entered <= counters.members);
    require(limits.max_members == 0 || events.entered <= limits.max_members);
    require(events.deepest == counters.deepest_level);

    std::uint64_t counted = 0, cancelled = 0;
    for (std::size_t i = 0; i < vole_result_finding_count(result); ++i) {
        const vole_finding& finding = *vole_result_finding(result, i);
        counted += !finding.allowed;
        require((finding.offset == VOLE_NO_OFFSET) == (finding.kind == VOLE_KIND_MD5));
        note(std::string(finding.name) + vole_form_name(finding.form) + (finding.allowed ? "-" : "+"));
        readPath(finding.member);
    }
    for (std::size_t i = 0; i < vole_result_reason_count(result); ++i) {
        const vole_reason& reason = *vole_result_reason(result, i);
        cancelled += reason.code == VOLE_REASON_CANCELLED;
        note(std::string(vole_reason_name(reason.code)) + reason.text);
        readPath(reason.member);
    }
    require(cancelled == 0 || (cancelled == 1 && events.parameters.stopAfter != 0));
    require(vole_result_outcome(result) == outcome && outcome != VOLE_OUTCOME_FAILED);
    const bool allKept = vole_result_finding_count(result) == counters.findings;
    require(counted == 0 ? outcome != VOLE_OUTCOME_FOUND || !allKept : outcome == VOLE_OUTCOME_FOUND);
    require(outcome == VOLE_OUTCOME_FOUND || (outcome == VOLE_OUTCOME_INCOMPLETE) == (counters.reasons > 0));
    require(events.parameters.allMatches || counted <= 1);
    note(vole_outcome_name(outcome));
}

vole_signatures* loaded() {
    const TempDir patterns;
    patterns.write("a.hdb", md5Record("a known content\n", "Known-Content") + md5Record("a", "Known-Letter"));
    patterns.write("a.chk", startRecord("a known start", "Known-Start") + startRecord("a kn", "Known-Word"));
    patterns.write("pattern_assistant.xml", "<list><FalseAlarm><v name=\"Known-Word\"/></FalseAlarm></list>");
    vole_signatures* set = nullptr;
    require(vole_signatures_load(patterns.path().c_str(), nullptr, &set) == VOLE_OK);
    require(vole_signatures_count(set) == 4 && vole_signatures_is_false_alarm(set, "known-word"));
    return set;
}

}  // namespace

void scanBuffer(std::string_view input) {
    static vole_signatures* const set = loaded();
    const Parameters parameters(input);
    vole_scanner* made = nullptr;
    require(vole_scanner_new(set, &parameters.limits, &made) == VOLE_OK);
    const std::unique_ptr<vole_scanner, decltype(&vole_scanner_free)> scanner(made, vole_scanner_free);
    require(vole_scanner_set_flags(made, VOLE_SCAN_CONTENTS | (parameters.allMatches ? VOLE_SCAN_ALL_MATCHES : 0)) ==
            VOLE_OK);
    Events first{parameters}, second{parameters};
    for (Events* events : {&first, &second}) {
        vole_outcome outcome;
        require(vole_scanner_set_events(made, onEvent, events) == VOLE_OK);
        require(vole_scan_buffer(made, input.data(), input.size(), &outcome) == VOLE_OK);
        checkAgreement(vole_scanner_result(made), outcome, *events);
    }
    require(first.all == second.all && first.bytes == second.bytes && first.reasons == second.reasons);
}
