// Target.h: what is fuzzed. Each target is a Target object with a name; one program fuzzes the one that it is told to,
// another one replays inputs.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Exception.h"

class Target {
public:
    // `run` takes one input. The framework's exceptions may leave it; everything else that does is a finding.
    Target(const char* name, void (*run)(std::string_view input));

    static const Target* find(std::string_view name);  // Or null.

    // Runs on one input, as a scan would: with a budget of its own, and with its diagnostics formatted and dropped.
    void operator()(std::string_view input) const;

private:
    static constinit const Target* _latest;

    const char* _name;
    void (*_run)(std::string_view);
    const Target* _next;
};

// For promises that no sanitizer watches.
inline void require(bool promiseKept) {
    if (!promiseKept) std::abort();
}

// What inputs come to: bytes that come out, names, texts of refusals. Every build has to come to the same, so all of it
// goes into one checksum.
void note(std::string_view outcome);
std::uint32_t noted();
template <class Call>
void noteRefusal(Call call) {
    try {
        call();
    } catch (ZOV_SPACE::Exception& refusal) {
        note(refusal.getMessage());
    }
}

#endif  // FUZZ_TARGET_H
