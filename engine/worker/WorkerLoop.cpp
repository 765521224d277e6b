#include "WorkerLoop.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <utility>
#include <vector>

#include "ContentSource.h"
#include "ScanRun.h"
#include "Socket.h"
#include "VolumeFiles.h"

namespace worker {

using isolation::Bell;
using isolation::BellKind;
using isolation::Order;
using isolation::OrderKind;
using ZOV_SPACE::OwnFd;

namespace {

// Without a scanner there is nothing to do and nobody to tell.
[[noreturn]] void leave(int status) { ::_exit(status); }

}  // namespace

Order nextOrder(OwnFd& file) {
    Order order{};
    auto received = isolation::receiveMessage(isolation::kSocketFd, std::as_writable_bytes(std::span(&order, 1)),
                                              isolation::Waiting::yes);
    if (!received || received->size != sizeof order) leave(received && received->size == 0 ? 0 : EXIT_FAILURE);
    file = std::move(received->fd);
    return order;
}

void ring(const Bell& bell) {
    if (!isolation::sendMessage(isolation::kSocketFd, bell, -1, isolation::Waiting::yes)) leave(EXIT_FAILURE);
}

namespace {

// Rings, and waits for the answer.
Order ask(const Bell& bell, OwnFd& file) {
    ring(bell);
    return nextOrder(file);
}

Order ask(BellKind kind) {
    OwnFd none;
    return ask({kind, 0, 0}, none);
}

}  // namespace

OwnFd TemporaryFiles::take() {
    if (_idleCount > 0) return std::move(_idle[--_idleCount]);
    OwnFd file;
    ask({BellKind::file, 0, 0}, file);
    if (!file) errno = EMFILE;
    return file;
}

void TemporaryFiles::giveBack(OwnFd file) noexcept {
    if (_idleCount < _idle.size() && ::ftruncate(file.get(), 0) == 0) _idle[_idleCount++] = std::move(file);
}

void TemporaryFiles::close() {
    while (_idleCount > 0) _idle[--_idleCount].reset();
}

WorkerLoop::WorkerLoop(const vole_signatures& signatures, const isolation::Inbox& inbox, isolation::Outbox& outbox)
    : _signatures(signatures), _inbox(inbox), _writer(outbox, [] { ask(BellKind::full); }) {
    _terms.cancelledAt = &inbox.cancelled;
    _terms.context = this;
    ZOV_SPACE::takeAnonymousFilesFrom(&_files);
}

void WorkerLoop::run() {
    for (;;) {
        OwnFd file;
        const Order order = nextOrder(file);
        if (order.kind != OrderKind::scan) leave(EXIT_FAILURE);
        scan(order, file);
        _files.close();
        ring({BellKind::done, 0, 0});
    }
}

void WorkerLoop::scan(const Order& order, const OwnFd& file) {
    _terms.limits = order.limits;
    _terms.flags = order.flags;
    _terms.onEvent = nullptr;
    if (order.wantsEvents) {
        _terms.onEvent = [](void* self, const vole_event* event) {
            return static_cast<WorkerLoop*>(self)->tell(*event) ? 0 : 1;
        };
    }
    if (order.hasFile) {
        scanFile(order, file);
    } else {
        scanItems(order);
    }
}

void WorkerLoop::scanFile(const Order& order, const OwnFd& file) {
    const auto open = [&](ReportingScan& scan) {
        lookBeside(scan, order, 0);
        return contentOfDescriptor(file.get(), order.limits.max_content, scan);
    };
    _writer.result(capi::runScan(_signatures, _terms, _result, open, std::chrono::microseconds(order.spentUs)),
                   _result);
}

void WorkerLoop::scanItems(const Order& order) {
    std::vector<ContentAhead> contents;
    const std::span inbox(_inbox.bytes);
    for (const auto& item : std::span(order.items).first(std::min<std::size_t>(order.itemCount, order.items.size()))) {
        if (item.offset > inbox.size() || item.size > inbox.size() - item.offset) leave(EXIT_FAILURE);
        contents.push_back({inbox.subspan(static_cast<std::size_t>(item.offset), static_cast<std::size_t>(item.size))});
    }
    // Without memory each scan makes its own.
    static_cast<void>(capi::guarded([&] {
        if (contents.size() > 1) digestThose(contents, _signatures.patterns.md5List());
        return VOLE_OK;
    }));
    for (std::uint32_t i = 0; i < contents.size(); ++i) {
        const ContentAhead& content = contents[i];
        const auto open = [&](ReportingScan& scan) {
            lookBeside(scan, order, i);
            if (content.digest) scan.know(*content.digest);
            return contentOfMemory(content.bytes.data(), content.bytes.size(), order.limits.max_content, scan);
        };
        const std::chrono::microseconds spent(order.spentUs);
        _writer.result(capi::runScan(_signatures, _terms, _result, open, spent), _result);
    }
}

void WorkerLoop::lookBeside(ReportingScan& scan, const Order& order, std::uint32_t item) {
    if (!order.hasVolumes) return;
    scan.lookBeside([item](int number) {
        OwnFd file;
        ask({BellKind::volume, item, static_cast<std::uint32_t>(number)}, file);
        return VolumeFiles::content(file);
    });
}

// False when the host wants the end.
bool WorkerLoop::tell(const vole_event& event) {
    _writer.event(event);
    Order order = ask(BellKind::event);
    while (order.kind == OrderKind::read && event.content) {
        std::vector<std::byte> bytes(
            static_cast<std::size_t>(std::min<std::uint64_t>(order.size, isolation::kMostRead)));
        const std::ptrdiff_t count = vole_content_read(event.content, order.offset, bytes.data(), bytes.size());
        _writer.bytes(std::span(bytes).first(static_cast<std::size_t>(std::max<std::ptrdiff_t>(count, 0))));
        order = ask(BellKind::bytes);
    }
    return order.kind != OrderKind::stop;
}

}  // namespace worker
