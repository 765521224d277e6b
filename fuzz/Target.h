// Target.h: what is fuzzed. Each target is one source with one Target object; a program that is linked from one of them
// fuzzes it, and one that is linked from all of them replays inputs.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <cstdlib>
#include <string_view>

class Target {
public:
    // `run` takes one input. The framework's exceptions may leave it; everything else that does is a finding.
    Target(const char* name, void (*run)(std::string_view input));

    // The target with that name, or null; any of them without a name.
    static const Target* find(std::string_view name = {});

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

#endif  // FUZZ_TARGET_H
