// The words for the interface's numbers.
#include <array>
#include <cstddef>
#include <iterator>
#include <span>

#include "vole.h"

namespace {

const char* nameOf(std::span<const char* const> names, long long number) {
    if (number < 0 || number >= std::ssize(names)) return "unknown";
    return names[static_cast<std::size_t>(number)];
}

constexpr std::array kErrors{"no error",           "invalid argument",    "out of memory",
                             "not found",          "permission denied",   "not a regular file",
                             "input/output error", "unusable signatures", "the scanner is in use",
                             "internal error",     "worker lost",         "no isolation"};
constexpr std::array kOutcomes{"clean", "found", "incomplete", "failed"};
constexpr std::array kKinds{"unknown", "md5", "checksum"};
constexpr std::array kForms{"unknown", "raw", "normalised"};
constexpr std::array kReasons{"unknown",     "encrypted",  "method",     "unsupported", "volume",       "damaged",
                              "truncated",   "checksum",   "size-limit", "ratio-limit", "member-limit", "total-limit",
                              "depth-limit", "time-limit", "cancelled",  "work-budget", "memory",       "io"};
static_assert(kErrors.size() == VOLE_E_ISOLATION + 1);
static_assert(kReasons.size() == VOLE_REASON_IO + 1);

}  // namespace

const char* vole_error_text(vole_error error) { return nameOf(kErrors, error); }
const char* vole_outcome_name(vole_outcome outcome) { return nameOf(kOutcomes, outcome); }
const char* vole_kind_name(vole_kind kind) { return nameOf(kKinds, kind); }
const char* vole_form_name(vole_form form) { return nameOf(kForms, form); }
const char* vole_reason_name(vole_reason_code code) { return nameOf(kReasons, code); }

const char* vole_version() { return VOLE_VERSION; }
