// WorkerLoop: the worker's side of the conversation with an isolated scanner: takes orders to scan, and writes down
// what each scan came to. Ends the process when the scanner is gone.
//   Borrows: the set and both memories.
//   Threads: one.
#ifndef ENGINE_WORKER_WORKERLOOP_H
#define ENGINE_WORKER_WORKERLOOP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "FilesAhead.h"
#include "ReplyWriter.h"
#include "ReportingScan.h"
#include "Result.h"
#include "Signatures.h"
#include "Wire.h"
#include "io/FileIo.h"
#include "io/OwnFd.h"
#include "vole.h"

namespace worker {

// The next order of the scanner on kSocketFd, and the descriptor that came with it.
isolation::Order nextOrder(ZOV_SPACE::OwnFd& file);

// Tells the scanner.
void ring(const isolation::Bell& bell);

// The scanner's files, which are kept for the next member that needs one until the scanner wants them back.
class TemporaryFiles final : public ZOV_SPACE::AnonymousFiles {
public:
    ZOV_SPACE::OwnFd take() override;
    void giveBack(ZOV_SPACE::OwnFd file) noexcept override;
    void close();

private:
    std::array<ZOV_SPACE::OwnFd, isolation::kMostTemporaryFiles> _idle;
    std::size_t _idleCount = 0;
};

class WorkerLoop {
public:
    WorkerLoop(const vole_signatures& signatures, const isolation::Inbox& inbox, isolation::Outbox& outbox);

    [[noreturn]] void run();

private:
    void scan(const isolation::Order& order, const ZOV_SPACE::OwnFd& file);
    void scanFile(const isolation::Order& order, const ZOV_SPACE::OwnFd& file);
    void scanItems(const isolation::Order& order);
    void lookBeside(ReportingScan& scan, const isolation::Order& order, std::uint32_t item);
    bool tell(const vole_event& event);

    const vole_signatures& _signatures;
    const isolation::Inbox& _inbox;
    isolation::ReplyWriter _writer;
    TemporaryFiles _files;
    ScanTerms _terms;
    vole_result _result;
};

}  // namespace worker

#endif  // ENGINE_WORKER_WORKERLOOP_H
