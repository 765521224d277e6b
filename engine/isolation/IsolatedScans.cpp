#include "IsolatedScans.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Boundary.h"
#include "Raise.h"
#include "SharedMemory.h"
#include "ShownContent.h"
#include "VolumeFiles.h"
#include "io/FileIo.h"

namespace isolation {
namespace {

using std::chrono::milliseconds;
using ZOV_SPACE::OwnFd;

constexpr const char* kNonsense = "it answered what makes no sense";
constexpr unsigned kMostLostAtOnce = 3;  // Workers in a row; from then on the next one has to wait.
constexpr int kMostStarts = 3;           // Of workers that end before they are ready.
constexpr std::size_t kStreamInMemory = std::size_t{16} << 20;
constexpr std::size_t kStreamPiece = std::size_t{256} << 10;

// Before the next worker: twice as long for each that was lost.
milliseconds pauseAfter(unsigned lostInARow) {
    constexpr milliseconds kFirst{100}, kLongest{5'000};
    if (lostInARow < kMostLostAtOnce) return {};
    return std::min(kLongest, kFirst * (1 << std::min(lostInARow - kMostLostAtOnce, 10U)));
}

// A content that is in the worker's memory or behind descriptors that it has.
class RemoteContent final : public ShownContent {
public:
    RemoteContent(const vole_content& facts, WorkerLink& link, vole_result& result)
        : ShownContent(facts), _link(link), _result(result) {}

    std::ptrdiff_t read(std::uint64_t offset, void* buffer, std::size_t count) const override {
        if (offset >= size) return 0;
        const auto due = static_cast<std::size_t>(std::min<std::uint64_t>({count, INT_MAX, size - offset}));
        for (std::size_t done = 0; done < due;) {
            const std::size_t piece = std::min(due - done, kMostRead);
            const auto bytes = ask(offset + done, piece);
            if (bytes.size() != piece) return -1;
            std::memcpy(static_cast<char*>(buffer) + done, bytes.data(), piece);
            done += piece;
        }
        return static_cast<std::ptrdiff_t>(due);
    }

private:
    // What is thrown here does not get past the C interface; the link throws it once more afterwards.
    std::span<const std::byte> ask(std::uint64_t offset, std::size_t count) const {
        Order order{};
        order.kind = OrderKind::read;
        order.offset = offset;
        order.size = count;
        _link.send(order);
        Bell bell = _link.wait();
        for (order.kind = OrderKind::goOn; bell.kind == BellKind::full; bell = _link.wait()) _link.send(order);
        try {
            constexpr auto kWanted = ReplyReader::Next::bytes;
            ReplyReader& replies = _link.replies();
            if (bell.kind == BellKind::bytes && replies.next(kWanted, _result) == kWanted) return replies.bytes();
        } catch (const Nonsense&) {
        }
        _link.drop(kNonsense);
        throw WorkerLost();
    }

    WorkerLink& _link;
    vole_result& _result;
};

// The same file for reading alone, with a position of its own: what the host may do with its descriptor a worker may
// not, and what it may not do with it, that has no more rights here. Nothing, with errno set, where there is no way to
// it.
OwnFd readOnlyAgain(int fd) {
    const int mode = ::fcntl(fd, F_GETFL);
    if (mode < 0) return {};
    const bool isReadable = (mode & O_PATH) == 0 && ((mode & O_ACCMODE) == O_RDONLY || (mode & O_ACCMODE) == O_RDWR);
    if (!isReadable) {
        errno = EBADF;
        return {};
    }
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (OwnFd file = ZOV_SPACE::openFile(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY)) return file;
    // One that may not be opened any more, but can be read as it is.
    const int error = errno;
    OwnFd same((mode & O_ACCMODE) == O_RDONLY ? ::fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1);
    errno = error;
    return same;
}

// Bytes that nobody can change any more.
OwnFd sealedCopy(std::span<const char> bytes) {
    OwnFd file = memoryFile("vole-content");
    if (!file || !ZOV_SPACE::writeAll(file.get(), bytes.data(), bytes.size())) return {};
    return ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0
               ? std::move(file)
               : OwnFd();
}

// Moves what was written to the one file to the other; false, with errno set.
bool moveBytes(int from, int to) {
    std::vector<char> piece(kStreamPiece);
    for (std::int64_t position = 0;;) {
        const std::int64_t count = ZOV_SPACE::readAllAt(from, piece.data(), piece.size(), position);
        if (count <= 0) return count == 0;
        if (!ZOV_SPACE::writeAll(to, piece.data(), static_cast<std::size_t>(count))) return false;
        position += count;
    }
}

}  // namespace

// The volumes beside some paths, which a worker scans in their order.
class IsolatedScans::VolumesOf {
public:
    VolumesOf(std::span<const char* const> paths, std::uint64_t most) : _paths(paths), _most(most) {}

    OwnFd open(const Bell& bell) {
        if (bell.item < _item || bell.item >= _paths.size() || bell.number < 2 || bell.number > INT_MAX) {
            throw Nonsense();
        }
        if (!_volumes || bell.item != _item) _volumes.emplace(_paths[bell.item], _most);
        _item = bell.item;
        return _volumes->open(static_cast<int>(bell.number));
    }

private:
    std::span<const char* const> _paths;
    std::uint64_t _most;
    std::uint32_t _item = 0;
    std::optional<VolumeFiles> _volumes;
};

IsolatedScans::IsolatedScans(const vole_signatures& signatures, ScanTerms& terms, vole_result& result,
                             WorkerTerms worker)
    : _signatures(signatures), _terms(terms), _result(result), _link(std::move(worker), signatures.falseAlarms) {
    if (_link.hasMemory()) _terms.cancelledAt = &_link.inbox().cancelled;
}

vole_error IsolatedScans::start() { return _link.hasMemory() && haveWorker(false) ? VOLE_OK : notStarted(); }

// One that something ended before it was ready had no content, and says nothing of the next one.
bool IsolatedScans::haveWorker(bool andReady) {
    for (int tries = 0; tries == 0 || (tries < kMostStarts && _link.hadEnded()); ++tries) {
        if ((_link.isRunning() || _link.start()) && (!andReady || _link.beReady())) return true;
    }
    return false;
}

vole_error IsolatedScans::notStarted() {
    _result.errorText = "no worker can be started: ";
    _result.errorText += _link.hasMemory() ? _link.whyNot() : ZOV_SPACE::systemErrorText();
    return VOLE_E_ISOLATION;
}

// As a scan without a worker begins and ends; in between the worker is asked.
template <class Hand>
vole_error IsolatedScans::scan(VolumesOf* volumes, Hand hand) {
    const auto start = std::chrono::steady_clock::now();
    _result.clear();
    ReportingScan here(_signatures, _terms, _result);
    try {
        here.checkpoint();
        const Handed handed = hand(here);
        if (handed.error != VOLE_OK) {
            _result.errorText = handed.errorText;
            return handed.error;
        }
        if (!handed.isRefused) {
            const auto spent = std::chrono::steady_clock::now() - start;
            return ask(handed, volumes,
                       static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::microseconds>(spent).count()));
        }
    } catch (const ZOV_SPACE::ScanStoppedException&) {
    }
    here.conclude();
    return VOLE_OK;
}

vole_error IsolatedScans::path(const char* path) {
    VolumesOf volumes({&path, 1}, _terms.limits.max_content);
    return scan(&volumes, [&](ReportingScan&) {
        auto opened = openContent(path);
        return Handed{std::move(opened.file), 0, opened.error, std::move(opened.errorText)};
    });
}

vole_error IsolatedScans::descriptor(int fd) {
    return scan(nullptr, [&](ReportingScan&) {
        Handed handed;
        if (const auto fault = whyNotSeekable(fd)) {
            handed.error = fault->error;
            handed.errorText = fault->errorText;
        } else if (!(handed.file = readOnlyAgain(fd))) {
            handed.error = VOLE_E_IO;
            handed.errorText = errno == EBADF ? kUnreadableFile : ZOV_SPACE::systemErrorText();
        }
        return handed;
    });
}

vole_error IsolatedScans::memory(const void* data, std::size_t size) {
    return scan(nullptr, [&](ReportingScan& of) {
        Handed handed;
        const std::span bytes(static_cast<const char*>(data), size);
        handed.isRefused = !fits(size, _terms.limits.max_content, of);
        if (handed.isRefused) return handed;
        auto& inbox = _link.inbox().bytes;
        if (size <= inbox.size()) {
            std::copy(bytes.begin(), bytes.end(), inbox.begin());
            handed.inboxBytes = size;
        } else if (!(handed.file = sealedCopy(bytes))) {
            handed.error = VOLE_E_IO;
            handed.errorText = ZOV_SPACE::systemErrorText();
        }
        return handed;
    });
}

vole_error IsolatedScans::stream(vole_read_fn read, void* context) {
    return scan(nullptr, [&](ReportingScan& of) { return spool(read, context, of); });
}

// To memory without a name, and from a certain size on to a file without one.
IsolatedScans::Handed IsolatedScans::spool(vole_read_fn read, void* context, ReportingScan& scan) {
    Handed handed;
    const auto failed = [&handed](std::string text) {
        handed.error = VOLE_E_IO;
        handed.errorText = std::move(text);
        return std::move(handed);
    };
    std::vector<char> piece(kStreamPiece);
    handed.file = memoryFile("vole-content");
    bool isInMemory = true;
    for (std::uint64_t size = 0; handed.file;) {
        scan.checkpoint();
        const std::ptrdiff_t count = read(context, piece.data(), piece.size());
        if (count < 0 || static_cast<std::size_t>(count) > piece.size()) return failed(kUnreadableStream);
        if (count == 0) {
            if (OwnFd forReading = readOnlyAgain(handed.file.get())) handed.file = std::move(forReading);
            return handed;
        }
        size += static_cast<std::uint64_t>(count);
        handed.isRefused = !fits(size, _terms.limits.max_content, scan);
        if (handed.isRefused) return handed;
        if (isInMemory && size > kStreamInMemory) {
            OwnFd onDisk = ZOV_SPACE::createAnonymousFile();
            if (!onDisk || !moveBytes(handed.file.get(), onDisk.get())) break;
            handed.file = std::move(onDisk);
            isInMemory = false;
        }
        if (!ZOV_SPACE::writeAll(handed.file.get(), piece.data(), static_cast<std::size_t>(count))) break;
    }
    return failed(ZOV_SPACE::systemErrorText());
}

Order IsolatedScans::scanOrder() const {
    Order order{};
    order.kind = OrderKind::scan;
    order.limits = _terms.limits;
    order.flags = _terms.flags;
    order.wantsEvents = _terms.onEvent != nullptr;
    return order;
}

vole_error IsolatedScans::ask(const Handed& handed, VolumesOf* volumes, std::uint64_t spentUs) {
    if (const vole_error error = runWorker()) return error;
    Order order = scanOrder();
    order.spentUs = spentUs;
    order.hasFile = static_cast<bool>(handed.file);
    order.hasVolumes = volumes != nullptr;
    if (!handed.file) {
        order.itemCount = 1;
        order.items[0] = {0, handed.inboxBytes};
    }
    vole_error error = VOLE_OK;
    const bool isDone = tryTo([&] {
        converse(order, handed.file.get(), volumes);
        error = takeResult(true);
    });
    return isDone ? error : lost();
}

// False when the worker was lost over it. Whatever else is thrown leaves no worker behind that waits for an answer.
template <class Step>
bool IsolatedScans::tryTo(Step step) {
    try {
        step();
        return true;
    } catch (const WorkerLost&) {
    } catch (const Nonsense&) {
        _link.drop(kNonsense);
    } catch (...) {
        _link.drop("it was ended");
        throw;
    }
    return false;
}

vole_error IsolatedScans::runWorker() {
    // What ended one that had nothing to do was not the content that comes now.
    if (_link.isRunning() && _link.hasEnded()) _link.drop({});
    if (!_link.isRunning()) pause();
    if (haveWorker(true)) return VOLE_OK;
    ++_lostInARow;
    return notStarted();
}

void IsolatedScans::pause() const {
    constexpr milliseconds kStep{20};
    const auto end = std::chrono::steady_clock::now() + pauseAfter(_lostInARow);
    while (std::chrono::steady_clock::now() < end && !isCancelled()) std::this_thread::sleep_for(kStep);
}

// Until the worker is done.
void IsolatedScans::converse(const Order& scanned, int fd, VolumesOf* volumes) {
    _link.replies().clear();
    _link.send(scanned, fd);
    for (;;) {
        Order answer{};
        answer.kind = OrderKind::goOn;
        OwnFd volume;
        const Bell bell = _link.wait();
        if (bell.kind == BellKind::done) return;
        if (bell.kind == BellKind::event) {
            if (!tellHost()) answer.kind = OrderKind::stop;
        } else if (bell.kind == BellKind::volume && volumes) {
            volume = volumes->open(bell);
        } else if (bell.kind != BellKind::full) {
            throw Nonsense();
        }
        _link.send(answer, volume.get());
    }
}

// False when the host wants the end.
bool IsolatedScans::tellHost() {
    constexpr auto kWanted = ReplyReader::Next::event;
    if (!_terms.onEvent || _link.replies().next(kWanted, _result) != kWanted) throw Nonsense();
    ToldEvent& told = _link.replies().event();
    const RemoteContent content(told.content, _link, _result);
    if (told.event.content) told.event.content = &content;
    return _terms.onEvent(_terms.context, &told.event) == 0;
}

// Behind the last one there is nothing more.
vole_error IsolatedScans::takeResult(bool isLast) {
    ReplyReader& replies = _link.replies();
    if (replies.next(ReplyReader::Next::result, _result) != ReplyReader::Next::result) throw Nonsense();
    if (isLast && replies.hasMore()) throw Nonsense();
    _lostInARow = 0;
    return _link.replies().error();
}

vole_error IsolatedScans::lost() {
    ++_lostInARow;
    _result.clear();
    _result.outcome = VOLE_OUTCOME_FAILED;
    _result.errorText = "its worker is lost: " + _link.whyNot();
    const auto pause = pauseAfter(_lostInARow);
    if (pause.count() != 0) {
        _result.errorText += "; " + std::to_string(_lostInARow) + " were in a row, so the next one has to wait for " +
                             std::to_string(pause.count()) + " ms";
    }
    return VOLE_E_WORKER;
}

vole_error IsolatedScans::paths(std::span<const char* const> paths, const Told& told) {
    SmallFiles files(_link.inbox().bytes);
    bool wanted = true;
    for (std::size_t index = 0; index < paths.size() && wanted;) {
        std::size_t count = 0;
        // A host that is told of what happens in a file is told of the end of the one before it first.
        if (!_terms.onEvent && !isCancelled()) count = readTogether(files, paths.subspan(index));
        if (count > 1) {
            index += askTogether(files, paths.subspan(index, count), index, told, wanted);
        } else {
            const vole_error error = capi::guarded([&] { return path(paths[index]); });
            wanted = told(index++, error);
        }
    }
    return VOLE_OK;
}

// How many of the paths are small files, which are read now. Without memory each is read in its turn.
std::size_t IsolatedScans::readTogether(SmallFiles& files, std::span<const char* const> paths) {
    const auto isRead = [](const auto& content) { return content.has_value(); };
    std::size_t count = 0;
    static_cast<void>(capi::guarded([&] {
        files.read(paths);
        const auto& contents = files.contents();
        count = static_cast<std::size_t>(std::find_if_not(contents.begin(), contents.end(), isRead) - contents.begin());
        return VOLE_OK;
    }));
    return count;
}

// The first of what was read. How many of them the host was told of: those that were not reached when a worker was lost
// have not been tried.
std::size_t IsolatedScans::askTogether(const SmallFiles& files, std::span<const char* const> paths, std::size_t first,
                                       const Told& told, bool& wanted) {
    const std::size_t count = paths.size();
    _result.clear();
    vole_error error = runWorker();
    if (error != VOLE_OK) {
        wanted = told(first, error);
        return 1;
    }
    Order order = scanOrder();
    order.itemCount = static_cast<std::uint32_t>(count);
    order.hasVolumes = 1;
    for (std::size_t i = 0; i < count; ++i) {
        const auto bytes = *files.contents()[i];
        order.items[i] = {static_cast<std::uint64_t>(bytes.data() - _link.inbox().bytes.data()), bytes.size()};
    }
    VolumesOf volumes(paths, _terms.limits.max_content);
    tryTo([&] { converse(order, -1, &volumes); });  // What it had done before it was lost counts.
    for (std::size_t i = 0; i < count; ++i) {
        _result.clear();
        const bool hasResult = tryTo([&] { error = takeResult(i + 1 == count); });
        if (!hasResult) error = lost();
        wanted = told(first + i, error);
        if (!hasResult || !wanted) return i + 1;
    }
    return count;
}

}  // namespace isolation
