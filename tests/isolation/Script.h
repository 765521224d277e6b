// Script.h: what the misbehaving worker does instead of scanning a content that begins with one of these words. The
// rest of such a content is steps.
#ifndef TESTS_ISOLATION_SCRIPT_H
#define TESTS_ISOLATION_SCRIPT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "Wire.h"

namespace script {

// When it starts there is no size: what was in the inbox before lies behind the steps.
inline constexpr std::string_view kAtScan = "when it scans:", kAtStart = "when it starts:";

enum class Step : std::uint32_t {
    put,      // Appends these bytes to the outbox.
    use,      // Says that the outbox has so many.
    finish,   // Counts a content as done.
    send,     // Sends these bytes as a bell.
    sendFds,  // The same, with two descriptors.
    listen,   // Waits for an order, and keeps what comes with it.
    call,     // Makes a system call: its number, then arguments, of which some stand for addresses.
    oldCall,  // The same, as 32-bit programs do.
    write,    // Writes to this address.
    eat,      // Uses 1 GiB of memory.
    again     // Begins anew.
};

struct StepHead {
    Step step;
    std::uint32_t size;
};

template <class T>
std::string raw(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline std::string step(Step what, const std::string& with = "") {
    return raw(StepHead{what, static_cast<std::uint32_t>(with.size())}) + with;
}

inline std::string put(const std::string& bytes) { return step(Step::put, bytes); }
inline std::string call(long number, const std::string& arguments = "") {
    return step(Step::call, std::to_string(number) + " " + arguments);
}
inline std::string ring(isolation::BellKind kind, std::uint32_t item = 0, std::uint32_t number = 0) {
    return step(Step::send, raw(isolation::Bell{kind, item, number}));
}

}  // namespace script

#endif  // TESTS_ISOLATION_SCRIPT_H
