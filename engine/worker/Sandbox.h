// Sandbox.h: what a worker gives up before it sees the first content.
#ifndef ENGINE_WORKER_SANDBOX_H
#define ENGINE_WORKER_SANDBOX_H

#include <cstdint>
#include <string>

namespace worker {

struct SandboxTerms {
    std::uint64_t maxMemory = 0;  // Bytes of addresses besides those in use; 0 for any number.
};

// Keeps this process, which must have one thread, from all but reading what it is given, memory, and the socket. Throws
// SandboxError with what the system does not have; the process is good for nothing then.
struct SandboxError {
    std::string text;
};
void enterSandbox(const SandboxTerms& terms);

}  // namespace worker

#endif  // ENGINE_WORKER_SANDBOX_H
