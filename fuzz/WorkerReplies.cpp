// What a worker told its scanner, as one that the content has taken over may: the frames of one outbox.
// Input: a byte, how many bytes come at once, 0 for all; then the frames.
#include <algorithm>
#include <cstring>
#include <string>

#include "ReplyReader.h"
#include "Target.h"
#include "support/VoleHost.h"

namespace {

using isolation::ReplyReader;
using Next = ReplyReader::Next;

constexpr std::uint32_t kDeepest = 4;

void notePath(const vole_path& path) {
    require(path.count <= kDeepest);
    note(textOf(path));
}

void noteFinding(const vole_finding& finding) {
    require(*vole_kind_name(finding.kind) != 'u' && *vole_form_name(finding.form) != 'u');
    note(finding.name + std::to_string(finding.offset) + (finding.allowed ? "!" : "="));
    notePath(finding.member);
}

void noteReason(const vole_reason& reason) {
    require(std::strcmp(vole_reason_name(reason.code), "unknown") != 0);
    note(vole_reason_name(reason.code) + std::string(reason.text));
    notePath(reason.member);
}

void noteResult(const vole_result& result, vole_error error) {
    std::size_t counting = 0;
    for (const KeptFinding& finding : result.findings) {
        noteFinding(finding.view);
        counting += !finding.view.allowed;
    }
    for (const KeptReason& reason : result.reasons) noteReason(reason.view);
    const vole_counters& counters = result.counters;
    const std::size_t most = vole_result::kMostKept;
    require(counting <= most && result.findings.size() - counting <= most && result.reasons.size() <= most);
    require(counters.findings >= result.findings.size() && counters.reasons >= result.reasons.size());
    require((result.outcome == VOLE_OUTCOME_FAILED) == (error != VOLE_OK));
    require(error != VOLE_OK || (result.outcome == VOLE_OUTCOME_FOUND) == (counting != 0));
    require(result.outcome != VOLE_OUTCOME_CLEAN || counters.reasons == 0);
    note(vole_outcome_name(result.outcome) + result.errorText + std::to_string(counters.findings));
}

void noteEvent(const vole_event& event) {
    require((event.finding != nullptr) == (event.type == VOLE_EVENT_FINDING));
    require((event.reason != nullptr) == (event.type == VOLE_EVENT_REASON));
    require((event.content != nullptr) == (event.type == VOLE_EVENT_CONTENT));
    notePath(event.member);
    if (event.finding) noteFinding(*event.finding);
    if (event.reason) noteReason(*event.reason);
    if (event.content) note(event.content->method + std::to_string(event.content->size));
}

// All that is there, when it is of the kind that is wanted.
void readAll(Next wanted, ReplyReader& reader, vole_result& result) {
    while (reader.next(wanted, result) == wanted) {
        if (wanted == Next::result) {
            noteResult(result, reader.error());
            result.clear();
        } else if (wanted == Next::event) {
            noteEvent(reader.event().event);
        } else {
            note({reinterpret_cast<const char*>(reader.bytes().data()), reader.bytes().size()});
        }
    }
}

}  // namespace

void readReplies(std::string_view input) {
    if (input.empty()) return;
    const std::size_t atOnce = input[0] == 0 ? input.size() : static_cast<unsigned char>(input[0]);
    FalseAlarms falseAlarms;
    falseAlarms.add("Allowed");
    for (const Next wanted : {Next::result, Next::event, Next::bytes, Next::text}) {
        ReplyReader reader(falseAlarms);
        reader.expect(kDeepest);
        vole_result result;
        try {
            for (std::string_view rest = input.substr(1); !rest.empty();) {
                const std::string_view piece = rest.substr(0, atOnce);
                reader.append(std::as_bytes(std::span(piece)));
                readAll(wanted, reader, result);
                rest.remove_prefix(piece.size());
            }
            note("all of it");
        } catch (const isolation::Nonsense&) {
            note("nonsense");
        }
    }
}
