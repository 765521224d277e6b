// Target.h: what is fuzzed. One program fuzzes the target that it is told to, another one replays inputs.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Exception.h"

// Takes one input. The framework's exceptions may leave it; everything else that does is a finding.
using Target = void(std::string_view input);

Target readList, readOptionFile, scanWithPatterns, compareCheckSums, unpackPpm, unpackRar20, unpackRar29, scanWhole,
    runVmProgram, scanBuffer, readHttpBody, walkContainer, scanWithCompiledSet, inflateTwice, checkFiles, readReplies;

Target* findTarget(std::string_view name);  // Or null.

// Runs on one input, as a scan would: with a budget of its own, and with its diagnostics formatted and dropped.
void runTarget(Target* target, std::string_view input);

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
