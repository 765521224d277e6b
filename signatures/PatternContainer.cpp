// A file is read in one pass. Records are appended to their list without being searchable; the list's tables are built
// behind the last line, once, at the size that is needed then.
#include "PatternContainer.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "ByteOrder.h"
#include "PatternLineReader.h"
#include "io/RegularFile.h"

namespace {

// Adds the file's data lines to the list and counts those that it accepts.
// `onCount` takes the number of a "#count:" header; one counts only before the first data line.
template <class List, class OnCount>
void appendLines(PatternLineReader& lines, List& list, int& accepted, OnCount onCount) {
    bool headerOpen = true;
    PatternLine line;
    while (lines.next(line)) {
        if (line.kind == PatternLine::Kind::data) {
            headerOpen = false;
            // A malformed line is dropped without a message; the load goes on.
            if (!list.append(line.text)) ++accepted;
        } else if (line.kind == PatternLine::Kind::count && headerOpen) {
            onCount(line.count);
        }
    }
}

}  // namespace

bool PatternContainer::meansNoFile(int error) { return error == ENOENT || error == ENOTDIR || error == ELOOP; }

int PatternContainer::loadPattern(const std::string& path) {
    if (!isPatternName(path)) return 0;
    const bool isMd5 = path.ends_with(kMd5FileSuffix);
    ZOV_SPACE::OwnFd file = ZOV_SPACE::openRegularFile(path.c_str());
    if (!file) return meansNoFile(errno) ? kNoFile : kCannotOpen;
    PatternLineReader lines(std::move(file));
    if (isMd5) {
        loadMd5Lines(lines);
    } else {
        appendLines(lines, _checkSumList, _loadedCount, [](int) {});
    }
    return 0;
}

void PatternContainer::loadMd5Lines(PatternLineReader& lines) {
    _md5List.beginFile();
    const auto announce = [&](int count) {
        const auto plausible = std::min<std::uint64_t>(lines.bytesLeft() / BmList::kMinLineLength + 1, INT_MAX);
        _md5List.allocate(count, static_cast<std::size_t>(plausible));
    };
    try {
        appendLines(lines, _md5List, _loadedCount, announce);
    } catch (...) {
        _md5List.index();  // What was read before the file failed stays, and is found.
        throw;
    }
    _md5List.index();
}

int PatternContainer::scomp(const void* a, const void* b) {
    return static_cast<int>(ZOV_SPACE::loadU32(a) - ZOV_SPACE::loadU32(b));
}
