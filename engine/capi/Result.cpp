#include "Result.h"

#include <algorithm>
#include <utility>

KeptPath::KeptPath(std::shared_ptr<const ContentName> name) : _name(std::move(name)) {
    for (const ContentName* part = _name.get(); part->archive(); part = part->archive()) {
        _components.push_back({part->own().data(), part->own().size()});
    }
    std::reverse(_components.begin(), _components.end());
}

void vole_result::keep(KeptFinding&& finding) {
    std::size_t& number = finding.view.allowed ? keptAllowed : keptCounting;
    if (number >= kMostKept) return;
    ++number;
    KeptFinding& kept = findings.emplace_back(std::move(finding));
    kept.view.name = kept.name.c_str();  // A short text lies in its string, and has moved with it.
    kept.view.member = kept.path.view();
}

void vole_result::keep(KeptReason&& reason) {
    if (reasons.size() >= kMostKept) return;
    KeptReason& kept = reasons.emplace_back(std::move(reason));
    kept.view.text = kept.text.c_str();
    kept.view.member = kept.path.view();
}

void vole_result::clear() {
    outcome = VOLE_OUTCOME_CLEAN;
    errorText.clear();
    findings.clear();
    keptCounting = keptAllowed = 0;
    reasons.clear();
    counters = {};
}

vole_outcome vole_result_outcome(const vole_result* result) { return result ? result->outcome : VOLE_OUTCOME_FAILED; }

const char* vole_result_error_text(const vole_result* result) { return result ? result->errorText.c_str() : ""; }

size_t vole_result_finding_count(const vole_result* result) { return result ? result->findings.size() : 0; }

const vole_finding* vole_result_finding(const vole_result* result, size_t index) {
    return result && index < result->findings.size() ? &result->findings[index].view : nullptr;
}

size_t vole_result_reason_count(const vole_result* result) { return result ? result->reasons.size() : 0; }

const vole_reason* vole_result_reason(const vole_result* result, size_t index) {
    return result && index < result->reasons.size() ? &result->reasons[index].view : nullptr;
}

const vole_counters* vole_result_counters(const vole_result* result) { return result ? &result->counters : nullptr; }
