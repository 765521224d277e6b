#include "WorkerLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "Raise.h"
#include "Socket.h"

namespace isolation {
namespace {

using std::chrono::milliseconds;

constexpr const char* kNonsense = "it answered what makes no sense";
constexpr milliseconds kStartTime{30'000};                 // For the program to be ready; the machine may be busy.
constexpr milliseconds kGlance{50};                        // Between looks at what no descriptor tells of.
constexpr milliseconds kEndTime{2'000};                    // From a closed socket to the process's end.
constexpr std::uint64_t kLongestTime = 1'000'000'000'000;  // Milliseconds that are as good as any more.
constexpr std::uint32_t kDeepestEver = 10'001;

// Levels that a name can lie deep: a member of the deepest archive that is opened is one below it.
std::uint32_t deepestName(const vole_limits& limits) {
    return limits.max_depth == 0 ? kDeepestEver : std::min(limits.max_depth, kDeepestEver - 1) + 1;
}

// Bytes of temporary files that a scan may need at a time: all that it unpacks, one text that is as long as what it is
// made of, and what is written before a limit is seen.
std::uint64_t mostTemporary(const vole_limits& limits) {
    constexpr std::uint64_t kMargin = std::uint64_t{64} << 20;
    const auto bounded = [](std::uint64_t limit) {
        return limit == 0 ? kMostTemporaryBytes : std::min(limit, kMostTemporaryBytes);
    };
    const std::uint64_t besides = std::max(bounded(limits.max_content), bounded(limits.max_member)) + kMargin;
    const std::uint64_t most = kMostTemporaryFiles * kMostTemporaryBytes;
    return limits.max_total == 0 || limits.max_total > most - besides ? most : limits.max_total + besides;
}

}  // namespace

WorkerLink::WorkerLink(WorkerTerms terms, const FalseAlarms& falseAlarms)
    : _terms(std::move(terms)),
      _inbox(SharedMemory<Inbox>::create("vole-inbox", SharedMemory<Inbox>::Writers::thisProcess)),
      _outbox(SharedMemory<Outbox>::create("vole-outbox", SharedMemory<Outbox>::Writers::everybody)),
      _reader(falseAlarms) {}

bool WorkerLink::start() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        _why = ZOV_SPACE::systemErrorText();
        return false;
    }
    _socket.reset(ends[0]);
    const ZOV_SPACE::OwnFd others(ends[1]);
    (*_outbox)->used.store(0);
    _taken = 0;
    _allowedFor = {};
    _isReady = false;
    _hadEnded = false;
    _files.clear();
    _reader.clear();
    const int error = _process.start(_terms.program, {others.get(), _terms.set->fd(), _inbox->fd(), _outbox->fd()});
    if (error != 0) {
        _why = _terms.program + ": " + ZOV_SPACE::systemErrorText(error);
        return false;
    }
    try {
        Order order{};
        order.kind = OrderKind::start;
        order.version = versionText();
        order.maxMemory = _terms.maxMemory;
        send(order);
    } catch (const WorkerLost&) {
        return false;
    }
    return _terms.set->suits(_terms.program) || beReady();
}

bool WorkerLink::beReady() {
    if (_isReady) return true;
    _start = Clock::now();  // Nobody may have wanted it for long, and its word lies there.
    try {
        _isReady = wait().kind == BellKind::ready;
        if (_isReady) {
            _terms.set->note(_terms.program);
            return true;
        }
        vole_result none;
        drop(_reader.next(ReplyReader::Next::text, none) == ReplyReader::Next::text
                 ? std::string(reinterpret_cast<const char*>(_reader.bytes().data()), _reader.bytes().size())
                 : "it cannot work here");
    } catch (const WorkerLost&) {
    } catch (const Nonsense&) {
        drop("it makes no sense");
    }
    return false;
}

bool WorkerLink::hasEnded() const {
    pollfd ended{_process.endedFd(), POLLIN, 0};
    return ::poll(&ended, 1, 0) == 1;
}

void WorkerLink::drop(std::string why) {
    _process.end();
    _socket.reset();
    _files.clear();
    _why = std::move(why);
}

void WorkerLink::lose(std::string why) {
    drop(std::move(why));
    throw WorkerLost();
}

// What it wrote before it ended counts.
void WorkerLink::loseEnded() {
    pollfd ended{_process.endedFd(), POLLIN, 0};
    while (::poll(&ended, 1, static_cast<int>(kEndTime.count())) < 0 && errno == EINTR) {
    }
    takeOutbox();
    std::string how = _process.end();
    _hadEnded = true;
    lose(how.empty() ? "it closed its socket" : std::move(how));
}

void WorkerLink::send(const Order& order, int fd) {
    if (!isRunning()) throw WorkerLost();
    // By the scanner: a worker that ends before it reads the order must not leave its last answer there for this one.
    (*_outbox)->used.store(0);
    _taken = 0;
    startClock(order);
    // It reads what it is sent before it goes on, so there is room unless it does what it may not.
    if (sendMessage(_socket.get(), order, fd, Waiting::no)) return;
    if (errno == EPIPE || errno == ECONNRESET) loseEnded();
    lose("it could not be told anything: " + ZOV_SPACE::systemErrorText());
}

void WorkerLink::startClock(const Order& order) {
    const auto now = Clock::now();
    if (order.kind != OrderKind::start && order.kind != OrderKind::scan) {
        _start += now - _bell;
        if (_cancelled != Clock::time_point{}) _cancelled += now - _bell;
        return;
    }
    const bool scans = order.kind == OrderKind::scan;
    _reader.expect(deepestName(order.limits));
    const auto limit = milliseconds(std::min(order.limits.max_time_ms, kLongestTime));
    _start = now;
    _patience = scans ? limit + (limit.count() == 0 ? milliseconds() : _terms.grace) : kStartTime;
    _results = (*_outbox)->results.load(std::memory_order_acquire);
    _contentsLeft = std::max<std::size_t>(order.itemCount, 1);
    _mostTemporary = mostTemporary(order.limits);
    _cancelled = {};
    if (scans) giveTime(now);
}

void WorkerLink::giveTime(Clock::time_point now) {
    constexpr milliseconds kSeldom{500};
    _start = now;
    const bool isAnew = _patience.count() != 0 && now - _allowed >= kSeldom;
    if (_patience == _allowedFor && !isAnew) return;
    _allowedFor = _patience;
    _allowed = now;
    _process.allowSeconds(static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::seconds>(_patience).count()));
}

Bell WorkerLink::wait() {
    if (!isRunning()) throw WorkerLost();
    for (;;) {
        watchTime();  // Each time: who rings all the time, to no end, takes time as well.
        pollfd sources[] = {{_socket.get(), POLLIN, 0}, {_process.endedFd(), POLLIN, 0}};
        const int ready = ::poll(sources, std::size(sources), static_cast<int>(kGlance.count()));
        if (ready < 0 && errno != EINTR) lose("it could not be waited for: " + ZOV_SPACE::systemErrorText());
        if (ready <= 0) continue;
        Bell bell{};
        if (sources[0].revents == 0) loseEnded();
        const auto received = receiveMessage(_socket.get(), std::as_writable_bytes(std::span(&bell, 1)), Waiting::no);
        if (!received && errno == EAGAIN) continue;
        if (!received && errno == EPROTO) lose(kNonsense);
        if (!received || received->size == 0) loseEnded();
        if (received->size != sizeof bell) lose(kNonsense);
        takeOutbox();
        _bell = Clock::now();
        if (bell.kind == BellKind::done) takeFilesBack();
        if (bell.kind != BellKind::file) return bell;
        giveFile();
    }
}

// None, where this process can have no more, or when the worker has as many as it may. What it has is watched from
// before it gets it.
void WorkerLink::giveFile() {
    Order order{};
    order.kind = OrderKind::goOn;
    int given = -1;
    ZOV_SPACE::OwnFd file = _files.size() < kMostTemporaryFiles ? memoryFile("vole-temporary") : ZOV_SPACE::OwnFd();
    if (file) given = _files.emplace_back(std::move(file)).get();
    send(order, given);
}

// The worker may still have them, and nobody looks at what they take until the next scan. So they stay empty: sealed
// first, since it may be writing right now.
void WorkerLink::takeFilesBack() {
    for (const auto& file : _files) {
        const bool isSealed = ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SEAL) == 0;
        if (!isSealed || ::ftruncate(file.get(), 0) != 0) {
            lose("its temporary files cannot be taken back: " + ZOV_SPACE::systemErrorText());
        }
    }
    _files.clear();
}

void WorkerLink::takeOutbox() {
    const std::uint32_t used = (*_outbox)->used.load(std::memory_order_acquire);
    if (used < _taken || used > (*_outbox)->bytes.size()) lose(kNonsense);
    try {
        _reader.append(std::span((*_outbox)->bytes).subspan(_taken, used - _taken));
    } catch (const Nonsense&) {
        lose("it answered more than it may");
    }
    _taken = used;
}

void WorkerLink::watchTime() {
    const auto now = Clock::now();
    const std::uint32_t results = (*_outbox)->results.load(std::memory_order_acquire);
    if (results != _results && _contentsLeft > 1) {
        --_contentsLeft;
        _results = results;
        giveTime(now);
    }
    if (_patience.count() != 0 && now - _start > _patience) {
        lose("it did not answer within " + std::to_string(_patience.count()) + " ms");
    }
    watchFiles(now);
    if (!(*_inbox)->cancelled.load(std::memory_order_relaxed)) return;
    if (_cancelled == Clock::time_point{}) _cancelled = now;
    if (now - _cancelled > _terms.grace) lose("it did not end its scan when it was told to");
}

// Whatever takes memory there is seen here, mapped or not: holes do not count.
void WorkerLink::watchFiles(Clock::time_point now) {
    if (_files.empty() || now - _weighed < kGlance) return;
    _weighed = now;
    constexpr std::uint64_t kBlock = 512;
    std::uint64_t bytes = 0;
    for (const auto& file : _files) {
        struct stat status {};
        if (::fstat(file.get(), &status) == 0) bytes += static_cast<std::uint64_t>(status.st_blocks) * kBlock;
    }
    if (bytes > _mostTemporary) lose("its temporary files took more memory than its limits allow");
}

}  // namespace isolation
