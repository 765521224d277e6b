// A file is read in one pass. Records are appended to their list without being searchable; the list's tables are built
// behind the last line, once, at the size that is needed then.
//
// An observer is told of accepted records in runs: texts that lie behind each other in the reader's buffer with nothing
// but a line feed between them. Most files are one run from a block's begin to its end, so that observing costs next to
// nothing.
#include "PatternContainer.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "ByteOrder.h"
#include "LoadObserver.h"
#include "PatternLineReader.h"
#include "io/RegularFile.h"

namespace {

constexpr RecordFault kNoLineFeed{
    "The file ends without a line feed, so its last line is left out", {}, 0, RecordFault::Kind::noLineFeed};
constexpr RecordFault kCut{
    "A line of more than 1023 bytes is cut: what follows is read as another line", {}, 0, RecordFault::Kind::longLine};
constexpr RecordFault kBehindNul{"What stands behind a NUL is left out", {}, 0, RecordFault::Kind::nul};

// Stands in for an observer where there is none. Costs nothing.
struct NoReport {
    void onComment(const PatternLine&, bool) {}
    void onData(const PatternLine&, const std::optional<RecordFault>&) {}
    void onEnd() {}
};

// Tells an observer of problems, and of accepted records in runs.
class Report {
public:
    Report(PatternLineReader& lines, LoadObserver& observer, RecordKind kind)
        : _lines(lines), _observer(observer), _kind(kind) {
        lines.beforeRefill([this] { endRun(); });
    }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;
    ~Report() {
        _lines.beforeRefill(nullptr);
        endRun();
    }

    void onComment(const PatternLine& line, bool heeded) {
        if (line.cut) onCut(line);
        if (line.kind != PatternLine::Kind::count) return;
        endRun();
        _observer.onCount(line, heeded);
    }

    void onData(const PatternLine& line, const std::optional<RecordFault>& fault) {
        const bool goesOn = line.text.data() == _end + 1 && *_end == '\n';
        if (goesOn && !fault && !line.cut && !line.hasNul) [[likely]] {
            _end = line.text.data() + line.text.size();
        } else {
            onUnusualData(line, fault, goesOn);
        }
    }

    void onEnd() {
        PatternLine rest;
        const bool hasRest = _lines.rest(rest);
        if (hasRest && rest.kind == PatternLine::Kind::data && !isEmpty(rest)) onProblem(rest, kNoLineFeed);
        _observer.onEnd(_lines.lineFeeds() + hasRest);
    }

private:
    void onUnusualData(const PatternLine& line, const std::optional<RecordFault>& fault, bool goesOn) {
        if (line.cut) onCut(line);
        if (fault) {
            if (!isEmpty(line)) onProblem(line, *fault);
            return;
        }
        if (line.hasNul) onProblem(line, kBehindNul);
        if (!goesOn || !_begin) {
            endRun();
            _begin = line.text.data();
            _firstLine = line.number;
        }
        _end = line.text.data() + line.text.size();
    }

    // Nobody takes such a line for a record.
    static bool isEmpty(const PatternLine& line) { return line.text.empty() && !line.hasNul; }

    // Only the first piece: others tell nothing new.
    void onCut(const PatternLine& line) {
        if (line.number != _cutLine) onProblem(line, kCut);
        _cutLine = line.number;
    }

    // What comes behind the line does not lie behind the run, so ending that costs nothing.
    void onProblem(const PatternLine& line, const RecordFault& fault) {
        endRun();
        _observer.onProblem(line, fault);
    }

    void endRun() {
        if (_begin) _observer.onRecords(_kind, {_begin, static_cast<std::size_t>(_end - _begin)}, _firstLine);
        _begin = nullptr;
        _end = &kNowhere;
    }

    static constexpr char kNowhere = '\0';

    PatternLineReader& _lines;
    LoadObserver& _observer;
    RecordKind _kind;
    const char* _begin = nullptr;  // The run; null when there is none.
    const char* _end = &kNowhere;  // Readable wherever a line's text follows.
    std::uint64_t _firstLine = 0;  // Of the run.
    std::uint64_t _cutLine = 0;
};

// Adds the file's data lines to the list and counts those that it accepts.
// `onCount` takes the number of a "#count:" header; one counts only before the first data line. `onPause` is called
// every now and then, if the list takes plain lines.
template <class List, class OnCount, class OnPause, class Reporting>
void appendLines(PatternLineReader& lines, List& list, int& accepted, OnCount onCount, OnPause onPause,
                 Reporting&& report) {
    bool headerOpen = true;
    PatternLine line;
    for (;;) {
        if constexpr (requires { list.appendPlain(lines.unread()); }) {
            while (const std::size_t length = list.appendPlain(lines.unread())) {
                headerOpen = false;
                ++accepted;
                report.onData(lines.take(length), std::nullopt);
            }
            onPause();
        }
        if (!lines.next(line)) break;
        if (line.kind == PatternLine::Kind::data) {
            headerOpen = false;
            // A malformed line is dropped; the load goes on.
            const auto fault = list.append(line.text);
            if (!fault) ++accepted;
            report.onData(line, fault);
        } else {
            if (line.kind == PatternLine::Kind::count && headerOpen) onCount(line.count);
            report.onComment(line, headerOpen);
        }
    }
    report.onEnd();
}

template <class List, class OnCount, class OnPause>
void appendLines(PatternLineReader& lines, List& list, int& accepted, OnCount onCount, OnPause onPause,
                 LoadObserver* observer, RecordKind kind) {
    if (observer) {
        appendLines(lines, list, accepted, onCount, onPause, Report(lines, *observer, kind));
    } else {
        appendLines(lines, list, accepted, onCount, onPause, NoReport());
    }
}

}  // namespace

bool PatternContainer::meansNoFile(int error) { return error == ENOENT || error == ENOTDIR || error == ELOOP; }

int PatternContainer::loadPattern(const std::string& path, LoadObserver* observer) {
    if (!isPatternName(path)) return 0;
    const bool isMd5 = path.ends_with(kMd5FileSuffix);
    ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(path.c_str());
    if (!file) return meansNoFile(errno) ? kNoFile : kCannotOpen;
    PatternLineReader lines(std::move(file), _second);
    if (isMd5) {
        loadMd5Lines(lines, observer);
    } else {
        appendLines(
            lines, _checkSumList, _loadedCount, [](int) {}, [] {}, observer, RecordKind::checkSum);
    }
    return 0;
}

void PatternContainer::loadMd5Lines(PatternLineReader& lines, LoadObserver* observer) {
    _md5List.beginFile();
    const auto announce = [&](int count) {
        const auto plausible = std::min<std::uint64_t>(lines.bytesLeft() / BmList::kMinLineLength + 1, INT_MAX);
        _md5List.allocate(count, static_cast<std::size_t>(plausible));
    };
    _bytesLeft -= std::min(_bytesLeft, lines.bytesLeft());
    const auto share = [&] {
        if (_md5List.hasMuch()) handOver(lines.bytesLeft());
    };
    try {
        appendLines(lines, _md5List, _loadedCount, announce, share, observer, RecordKind::md5);
    } catch (...) {
        if (!_second) _md5List.index();  // What was read before the file failed stays, and is found.
        throw;
    }
    if (!_second) _md5List.index();
}

void PatternContainer::shareWith(SecondThread& second, std::uint64_t bytes) {
    _second = &second;
    _md5List.shareWith(second);
    _bytes = _bytesLeft = bytes;
}

// All records that there are to be are guessed from those that the bytes up to here had.
void PatternContainer::handOver(std::uint64_t bytesLeft) {
    const std::uint64_t left = std::min(_bytes, _bytesLeft + bytesLeft);
    const double sofar = static_cast<double>(_bytes - left), records = _md5List.count();
    _md5List.handOver(static_cast<std::uint64_t>(sofar > 0 ? records * static_cast<double>(_bytes) / sofar : records));
}

void PatternContainer::prepare() {
    _checkSumList.index();
    _md5List.finish();
    _second = nullptr;
}

void PatternContainer::save(TableSink& sink) const {
    _md5List.save(sink);
    _checkSumList.save(sink);
}

void PatternContainer::map(TableSource& source) {
    _md5List.map(source);
    _checkSumList.map(source);
    const std::uint64_t count = std::uint64_t{_md5List.count()} + _checkSumList.count();
    TableSource::require(count <= INT_MAX);
    _loadedCount = static_cast<int>(count);
}

int PatternContainer::scomp(const void* a, const void* b) {
    return static_cast<int>(ZOV_SPACE::loadU32(a) - ZOV_SPACE::loadU32(b));
}
