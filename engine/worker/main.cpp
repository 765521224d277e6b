// vole-worker: what isolated scanners have contents looked at by. Only libvole starts it, with the descriptors of
// Wire.h.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include "CompiledSet.h"
#include "Exception.h"
#include "ReplyWriter.h"
#include "Sandbox.h"
#include "SharedMemory.h"
#include "Signatures.h"
#include "Wire.h"
#include "WorkerLoop.h"
#include "io/FileIo.h"

namespace {

using namespace isolation;

// What one content needed is kept for the next, up to this much, rather than given back, cleared and faulted in again.
void keepFreedMemory() {
    constexpr int kKept = 4 << 20, kMostThatMayBeKept = sizeof(void*) == 4 ? 512 << 10 : kKept;
    ::mallopt(M_TRIM_THRESHOLD, kKept);
    ::mallopt(M_MMAP_THRESHOLD, kMostThatMayBeKept);
}

// Everything that takes more rights than scanning does.
void prepare(const Order& order, vole_signatures& signatures) {
    if (order.kind != OrderKind::start || order.version != versionText()) {
        throw worker::SandboxError{"it is of another version"};
    }
    compiled::mapSet(kSetFd, false, signatures);
    ::close(kSetFd);
    worker::enterSandbox({order.maxMemory});
}

[[noreturn]] void refuse(Outbox& outbox, std::string_view why) {
    ReplyWriter(outbox, [] { std::_Exit(EXIT_FAILURE); }).text(why);
    worker::ring({BellKind::failed, 0, 0});
    std::_Exit(EXIT_FAILURE);
}

}  // namespace

int main() {
    keepFreedMemory();
    ZOV_SPACE::OwnFd none;
    const Order order = worker::nextOrder(none);
    const auto* const inbox = SharedMemory<const Inbox>::mapping(kInboxFd, PROT_READ);
    auto* const outbox = SharedMemory<Outbox>::mapping(kOutboxFd, PROT_READ | PROT_WRITE);
    if (!inbox || !outbox) return EXIT_FAILURE;
    ::close(kInboxFd);
    ::close(kOutboxFd);
    vole_signatures signatures;
    try {
        prepare(order, signatures);
    } catch (const worker::SandboxError& error) {
        refuse(*outbox, error.text);
    } catch (ZOV_SPACE::Exception& error) {
        refuse(*outbox, error.toString());
    } catch (const std::exception& error) {
        refuse(*outbox, error.what());
    }
    worker::WorkerLoop loop(signatures, *inbox, *outbox);
    worker::ring({BellKind::ready, 0, 0});
    loop.run();
}
