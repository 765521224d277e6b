// Verdict: what a report means for the body, and how the answer says so.
//   Threads: no state.
#ifndef VOLE_ICAP_VERDICT_H
#define VOLE_ICAP_VERDICT_H

#include <string>
#include <vector>

#include "FileReport.h"
#include "Settings.h"

namespace icap {

enum class Action {
    pass,        // As it came.
    passMarked,  // As it came, with a header that says what was not seen.
    block,       // A page in its place.
    fail         // No answer but an error.
};

struct Verdict {
    Action action = Action::fail;
    std::string word;    // For logs: "clean", "found", "incomplete", "failed", "unseen".
    std::string threat;  // Of the signature, or of the reason, or of the failure; empty when clean.
    std::string member;  // Path of the member within the body; empty: the body itself.

    // Of the ICAP answer, "Name: value" each; safe against names that try to add some. X-Infection-Found, X-Virus-ID
    // and X-Violations-Found are those of draft-stecher-icap-subid; Type=0 is an infection, Type=2 a broken rule.
    std::vector<std::string> headers() const;

    // Of an HTTP message that passes marked.
    std::string mark() const;
};

Verdict judge(const FileReport& report, const Settings& settings);

// For a body that was not scanned because of `error`.
Verdict failure(const std::string& error, const Settings& settings);

}  // namespace icap

#endif  // VOLE_ICAP_VERDICT_H
