#include "LoadRun.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <csignal>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <numeric>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "ReplyParser.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostIsTags = 16;
constexpr std::chrono::milliseconds kRest(10);  // Before a connection is made again behind a failure.
constexpr int kTickMilliseconds = 10;

volatile sig_atomic_t interrupted = 0;

void interrupt(int /*signal*/) { interrupted = 1; }

std::string textOf(int error) { return std::generic_category().message(error); }

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : _fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : _fd(std::exchange(other._fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(_fd, other._fd);
        return *this;
    }
    ~Descriptor() {
        if (_fd >= 0) ::close(_fd);
    }
    int get() const { return _fd; }

private:
    int _fd;
};

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

Addresses resolve(const LoadOptions& options) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(options.host.c_str(), options.port.c_str(), &hints, &found); error != 0) {
        throw std::runtime_error(options.host + ":" + options.port + ": " + gai_strerror(error));
    }
    return {found, &freeaddrinfo};
}

// What all connections of a run share.
struct Run {
    Run(const LoadOptions& runOptions, const std::vector<LoadRequest>& runRequests)
        : options(runOptions),
          requests(runRequests),
          addresses(resolve(runOptions)),
          epoll(epoll_create1(EPOLL_CLOEXEC)) {
        if (epoll.get() < 0) throw std::runtime_error("epoll: " + textOf(errno));
    }

    bool goesOn() const { return interrupted == 0 && Clock::now() < end; }

    const LoadOptions& options;
    const std::vector<LoadRequest>& requests;
    Addresses addresses;
    Descriptor epoll;
    std::array<char, 256 * 1024> buffer{};  // What was received last, on whichever connection.
    Tally tally;
    Clock::time_point end;
    Clock::time_point lastReply;
};

// One keep-alive connection and the request that is under way on it. A failed request is counted, never repeated.
class Connection {
public:
    Connection(Run& run, std::size_t number) : _run(run), _next(number % run.requests.size()) {}

    bool idle() const { return _state == State::kIdle; }

    // To be called every few milliseconds: begins what is to begin, ends what takes too long.
    void tick(Clock::time_point now) {
        if (_state == State::kIdle && now >= _restsUntil && _run.goesOn()) {
            begin();
        } else if (_state != State::kIdle && now >= _deadline) {
            fail(Failure::kTimedOut, "no reply in time");
        }
    }

    void handle(std::uint32_t events) {
        if (_state == State::kConnecting && !connected()) return;
        if ((events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) receive();
        if ((events & EPOLLOUT) != 0 && _state == State::kBusy) send();
    }

private:
    enum class State { kIdle, kConnecting, kBusy };

    void begin() {
        _request = &_run.requests[_next];
        _next = (_next + 1) % _run.requests.size();
        _began = Clock::now();
        _deadline =
            _began + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(_run.options.timeout));
        _unsent = _request->first;
        _restIsDue = false;
        _parser.expect(_request->body);
        if (_socket.get() >= 0) {
            _state = State::kBusy;
            send();
        } else {
            connect();
        }
    }

    void connect() {
        const addrinfo& address = *_run.addresses;
        _socket = Descriptor(::socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (_socket.get() < 0) throw std::runtime_error("socket: " + textOf(errno));
        if (std::exchange(_everConnected, true)) ++_run.tally.reconnects;
        const int on = 1;
        setsockopt(_socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        _state = State::kConnecting;
        _waitsToSend = true;
        epoll_event event{EPOLLIN | EPOLLOUT, {.ptr = this}};
        if (epoll_ctl(_run.epoll.get(), EPOLL_CTL_ADD, _socket.get(), &event) != 0) {
            throw std::runtime_error("epoll: " + textOf(errno));
        }
        if (::connect(_socket.get(), address.ai_addr, address.ai_addrlen) != 0 && errno != EINPROGRESS) {
            fail(Failure::kRefused, textOf(errno));
        }
    }

    bool connected() {
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(_socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
        if (error != 0) {
            fail(Failure::kRefused, textOf(error));
            return false;
        }
        _state = State::kBusy;
        return true;
    }

    void send() {
        while (!_unsent.empty()) {
            const ssize_t sent = ::send(_socket.get(), _unsent.data(), _unsent.size(), MSG_NOSIGNAL);
            if (sent < 0) break;
            _unsent.remove_prefix(static_cast<std::size_t>(sent));
        }
        // A server may have answered and closed; its answer is read first, and tells of that.
        if (!_unsent.empty() && errno != EAGAIN && errno != EPIPE && errno != ECONNRESET) {
            return fail(Failure::kClosed, textOf(errno));
        }
        waitToSend(!_unsent.empty() && errno == EAGAIN);
        finishIfDone();
    }

    void waitToSend(bool wait) {
        if (std::exchange(_waitsToSend, wait) == wait) return;
        epoll_event event{EPOLLIN | (wait ? std::uint32_t{EPOLLOUT} : 0U), {.ptr = this}};
        epoll_ctl(_run.epoll.get(), EPOLL_CTL_MOD, _socket.get(), &event);
    }

    void receive() {
        const ssize_t size = ::recv(_socket.get(), _run.buffer.data(), _run.buffer.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (_state == State::kIdle) return close();
        if (size <= 0) return fail(Failure::kClosed, size == 0 ? "closed before the reply's end" : textOf(errno));
        try {
            take(std::string_view(_run.buffer.data(), static_cast<std::size_t>(size)));
        } catch (const MalformedReply& problem) {
            fail(Failure::kMalformed, problem.what());
        }
    }

    void take(std::string_view bytes) {
        bytes.remove_prefix(_parser.feed(bytes));
        if (_parser.complete() && _parser.reply().status == 100) {
            if (_request->rest.empty() || std::exchange(_restIsDue, true)) throw MalformedReply("an unwanted 100");
            _unsent = _request->rest;
            _parser.expect(_request->body);
            return send();
        }
        if (!bytes.empty()) throw MalformedReply("more than a reply");
        finishIfDone();
    }

    // A server may answer before it has read all; the next request has to wait until it has.
    void finishIfDone() {
        if (!_parser.complete()) return;
        const bool closes = _parser.reply().closes;
        if (!_unsent.empty() && !closes) return;
        count(_parser.reply());
        if (_state == State::kIdle) return;
        _state = State::kIdle;
        if (closes) close();
        if (_run.goesOn()) begin();
    }

    bool allowed(int status) const {
        const bool inPreview = _request->previews && !_restIsDue;
        return status == 200 || (status == 204 && (inPreview || _request->allows204)) ||
               (status == 206 && _request->allows206);
    }

    void count(const Reply& reply) {
        Tally& tally = _run.tally;
        ++tally.statuses[reply.status];
        if (!allowed(reply.status)) {
            return fail(reply.status >= 400 ? Failure::kStatus : Failure::kMalformed,
                        "status " + std::to_string(reply.status));
        }
        _run.lastReply = Clock::now();
        const auto took = std::chrono::duration_cast<std::chrono::microseconds>(_run.lastReply - _began);
        tally.latency.add(static_cast<std::uint64_t>(took.count()));
        ++tally.requests;
        if (reply.found) ++tally.found;
        if (_run.options.expectedFound.value_or(reply.found) != reply.found) ++tally.wrongVerdicts;
        if (reply.bodyDiffers && !reply.found) ++tally.alteredBodies;
        if (tally.isTags.size() < kMostIsTags || tally.isTags.contains(reply.isTag)) ++tally.isTags[reply.isTag];
    }

    void fail(Failure failure, std::string why) {
        ++_run.tally.failures[static_cast<std::size_t>(failure)];
        _run.tally.lastFailure = std::move(why);
        close();
        _restsUntil = Clock::now() + kRest;
    }

    void close() {
        _socket = Descriptor();
        _state = State::kIdle;
    }

    Run& _run;
    std::size_t _next;  // The request to send next.
    Descriptor _socket;
    State _state = State::kIdle;
    bool _everConnected = false;
    bool _waitsToSend = false;
    bool _restIsDue = false;  // "100 Continue" has come.
    const LoadRequest* _request = nullptr;
    std::string_view _unsent;
    ReplyParser _parser;
    Clock::time_point _began;
    Clock::time_point _deadline;
    Clock::time_point _restsUntil;
};

void stopOnSignals() {
    struct sigaction action {};
    action.sa_handler = interrupt;
    for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

void tickAll(std::vector<std::unique_ptr<Connection>>& connections) {
    const Clock::time_point now = Clock::now();
    for (const auto& connection : connections) connection->tick(now);
}

void handleEvents(int epoll) {
    std::array<epoll_event, 64> events;
    const int count = epoll_wait(epoll, events.data(), static_cast<int>(events.size()), kTickMilliseconds);
    for (const epoll_event& event : std::span(events).first(static_cast<std::size_t>(std::max(count, 0)))) {
        static_cast<Connection*>(event.data.ptr)->handle(event.events);
    }
}

bool allIdle(const std::vector<std::unique_ptr<Connection>>& connections) {
    return std::all_of(connections.begin(), connections.end(), [](const auto& c) { return c->idle(); });
}

}  // namespace

std::uint64_t Tally::allFailures() const { return std::accumulate(failures.begin(), failures.end(), std::uint64_t{0}); }

Tally runLoad(const LoadOptions& options, const std::vector<LoadRequest>& requests) {
    const auto run = std::make_unique<Run>(options, requests);
    std::vector<std::unique_ptr<Connection>> connections;
    for (std::size_t i = 0; i < options.connections; ++i) connections.push_back(std::make_unique<Connection>(*run, i));
    stopOnSignals();
    const Clock::time_point start = Clock::now();
    run->end = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
    Clock::time_point nextTick = start;
    while (run->goesOn() || !allIdle(connections)) {
        if (Clock::now() >= nextTick) {
            tickAll(connections);
            nextTick = Clock::now() + std::chrono::milliseconds(kTickMilliseconds);
        }
        handleEvents(run->epoll.get());
    }
    // Waiting for replies that never came is no time in which requests were answered.
    const Clock::time_point end = std::max(run->lastReply, std::min(run->end, Clock::now()));
    run->tally.seconds = std::chrono::duration<double>(end - start).count();
    return std::move(run->tally);
}
