// A worker that does what contents tell it to. It is the worker program itself, in its own sandbox, but for this: all
// that it sends and receives goes through syscall(), which is wrapped here, and an order to scan a script does not come
// back before the script has ended, and another order with it.
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

#include "Script.h"
#include "SharedMemory.h"
#include "WorkerLoop.h"

extern "C" long __real_syscall(long, long, long, long, long, long, long);
extern "C" long __wrap_syscall(long, long, long, long, long, long, long);

namespace {

using namespace isolation;
using script::Step;

const Inbox* inbox = nullptr;
Outbox* outbox = nullptr;

long addressOf(const void* what) { return reinterpret_cast<long>(what); }

void send(std::string_view bytes, bool withFds) {
    constexpr int kBoth[] = {STDIN_FILENO, STDOUT_FILENO};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof kBoth)]{};
    iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
    msghdr message{nullptr, 0, &piece, 1, control, sizeof control, 0};
    cmsghdr* const rights = CMSG_FIRSTHDR(&message);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof kBoth);
    std::memcpy(CMSG_DATA(rights), kBoth, sizeof kBoth);
    if (!withFds) message.msg_controllen = 0;
    __real_syscall(SYS_sendmsg, kSocketFd, addressOf(&message), MSG_NOSIGNAL, 0, 0, 0);
}

// Words that are no numbers are text, but for "zeros", a page of them, "soon", a tenth of a second, "inbox", "self",
// and "code", what the oldest form of mmap() takes.
long valueOf(const std::string& word) {
    alignas(4096) static char zeros[4096]{};
    static const long soon[] = {0, 100'000'000};
    static const long code[] = {0, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0};
    static const std::map<std::string, long> known{{"zeros", addressOf(zeros)},
                                                   {"soon", addressOf(soon)},
                                                   {"code", addressOf(code)},
                                                   {"inbox", addressOf(inbox)},
                                                   {"self", ::getpid()}};
    if (const auto found = known.find(word); found != known.end()) return found->second;
    return word.find_first_not_of("-0123456789") == word.npos ? std::stol(word) : addressOf(word.c_str());
}

void call(const std::string& text, [[maybe_unused]] bool oldWay) {
    std::istringstream line(text);
    const std::vector<std::string> texts(std::istream_iterator<std::string>(line), {});
    long words[7]{};
    std::transform(texts.begin(), texts.begin() + std::min<std::ptrdiff_t>(std::ssize(texts), 7), words, valueOf);
#ifdef __x86_64__
    if (oldWay) {
        asm volatile("int $0x80"
                     : "+a"(words[0])
                     : "b"(words[1]), "c"(words[2]), "d"(words[3])
                     : "memory", "r8", "r9", "r10", "r11");
        return;
    }
#endif
    __real_syscall(words[0], words[1], words[2], words[3], words[4], words[5], words[6]);
}

void take(Step step, const std::string& with) {
    if (step == Step::put) {
        const std::uint32_t used = outbox->used.load();
        std::memcpy(outbox->bytes.data() + used, with.data(), std::min(with.size(), outbox->bytes.size() - used));
        outbox->used.store(used + static_cast<std::uint32_t>(with.size()));
    } else if (step == Step::use) {
        outbox->used.store(static_cast<std::uint32_t>(std::stoul(with)));
    } else if (step == Step::finish) {
        outbox->results.fetch_add(1);
    } else if (step == Step::send || step == Step::sendFds) {
        send(with, step == Step::sendFds);
    } else if (step == Step::listen) {
        static std::vector<ZOV_SPACE::OwnFd> kept;
        worker::nextOrder(kept.emplace_back());
    } else if (step == Step::call || step == Step::oldCall) {
        call(with, step == Step::oldCall);
    } else if (step == Step::write) {
        *reinterpret_cast<volatile char*>(valueOf(with)) = 'x';  // NOLINT(performance-no-int-to-ptr)
    } else if (step == Step::eat) {
        const std::string much(std::size_t{1} << 30, 'x');
        ::_exit(much.back());  // Only if nothing keeps it from taking this much.
    }
}

void run(const std::string& steps) {
    for (std::size_t at = 0; steps.size() - at >= sizeof(script::StepHead);) {
        script::StepHead head;
        std::memcpy(&head, steps.data() + at, sizeof head);
        at += sizeof head;
        if (head.size > steps.size() - at) return;
        take(head.step, steps.substr(at, head.size));
        at = head.step == Step::again ? 0 : at + head.size;
    }
}

// What the order is about, as far as a script is long.
std::string contentOf(const Order& order, const msghdr& message) {
    if (order.kind == OrderKind::start) return {inbox->bytes.data(), inbox->bytes.size()};
    if (order.kind != OrderKind::scan) return {};
    if (!order.hasFile) {
        return {inbox->bytes.data() + order.items[0].offset, static_cast<std::size_t>(order.items[0].size)};
    }
    int file;
    std::memcpy(&file, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof file);
    std::string content(8192, '\0');
    content.resize(static_cast<std::size_t>(std::max<ssize_t>(::pread(file, content.data(), content.size(), 0), 0)));
    return content;
}

}  // namespace

long __wrap_syscall(long number, long a, long b, long c, long d, long e, long f) {
    if (number != SYS_recvmsg) return __real_syscall(number, a, b, c, d, e, f);
    auto& message = *reinterpret_cast<msghdr*>(b);  // NOLINT(performance-no-int-to-ptr)
    const msghdr asked = message;
    for (;;) {
        const long result = __real_syscall(number, a, b, c, 0, 0, 0);
        Order order;
        if (result != sizeof order) return result;
        std::memcpy(&order, message.msg_iov->iov_base, sizeof order);
        const bool starts = order.kind == OrderKind::start;
        if (starts) {
            inbox = SharedMemory<const Inbox>::mapping(kInboxFd, PROT_READ);
            outbox = SharedMemory<Outbox>::mapping(kOutboxFd, PROT_READ | PROT_WRITE);
        }
        const std::string content = contentOf(order, message);
        const std::string_view word = starts ? script::kAtStart : script::kAtScan;
        if (!content.starts_with(word)) return result;
        run(content.substr(word.size()));
        if (starts) return result;
        message = asked;
    }
}
