// Nearly every content comes here and has nothing, so each byte is looked at once at most, and of a large content only
// those where something can be expected.
#include "zip/deep/ZipWithin.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "ArchiveMarks.h"
#include "ProgramEnd.h"
#include "zip/ZipConstants.h"
#include "zip/deep/ZipDirectoryView.h"
#include "zip/deep/ZipHeaderView.h"

namespace ZOV_SPACE {
namespace {

constexpr std::int64_t kSweptOfOthers = std::int64_t{1} << 18;  // Than programs.

// Looks through parts of a content, in ascending order.
class Search {
public:
    explicit Search(ContentBytes& bytes) : _bytes(bytes), _headers(bytes) {}

    void lookThrough(std::int64_t from, std::int64_t to) {
        from = std::max(from, _done);
        to = std::min(to, _bytes.size());
        for (auto mark = nextArchiveMark(_bytes, kZipMarks, from, to); mark;
             mark = nextArchiveMark(_bytes, kZipMarks, mark->position + 1, to)) {
            _hasEnd = _hasEnd || mark->kind == ArchiveMark::zipEnd;
            if (_header || mark->kind != ArchiveMark::zipHeader) continue;
            const auto header = _headers.read(mark->position);
            if (header && _headers.isPlausible(*header)) _header = mark->position;
        }
        _done = std::max(_done, to);
    }
    bool hasEnd() const { return _hasEnd; }
    std::optional<std::int64_t> header() const { return _header; }  // The first one.

private:
    ContentBytes& _bytes;
    ZipHeaderView _headers;
    std::int64_t _done = 0;
    bool _hasEnd = false;
    std::optional<std::int64_t> _header;
};

}  // namespace

ZipFound findZipWithin(BufferBase& content) {
    ContentBytes bytes(content);
    const auto programEnd = endOfProgram(bytes);
    Search search(bytes);
    search.lookThrough(0, programEnd ? kSweptAtBegin : kSweptOfOthers);
    if (programEnd) search.lookThrough(*programEnd, bytes.size());
    search.lookThrough(bytes.size() - kSweptAtEnd, bytes.size());
    const std::int64_t begin = search.header().value_or(bytes.size());
    if (search.hasEnd()) {
        ZipDirectoryView directories(bytes);
        const bool isEnd = directories.readFromEnd().has_value();
        const std::vector<ZipClaim> claims = directories.takeClaims();
        if (isEnd && !claims.empty()) {
            return {ZipWithin::archive, std::min<std::int64_t>(begin, claims.front().headerStart)};
        }
    }
    return {search.header() ? ZipWithin::header : ZipWithin::nothing, begin};
}

}  // namespace ZOV_SPACE
