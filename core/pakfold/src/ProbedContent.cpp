#include "unarchiver/ProbedContent.h"

#include <algorithm>
#include <cstdint>

#include "ArchiveMarks.h"
#include "ContentBytes.h"
#include "ProgramEnd.h"
#include "unarchiver/ForeignFormat.h"

namespace ZOV_SPACE {

unsigned ProbedContent::marksAtBegin() {
    if (!_marksAtBegin) {
        ContentBytes bytes(_bytes);
        _marksAtBegin = archiveMarksIn(bytes, 0, kSweptAtBegin);
    }
    return *_marksAtBegin;
}

unsigned ProbedContent::marks() {
    if (_marks) return *_marks;
    unsigned kinds = marksAtBegin();
    ContentBytes bytes(_bytes);
    const std::int64_t lastBytes = bytes.size() - kSweptAtEnd;
    const std::int64_t behind = std::min(endOfProgram(bytes).value_or(lastBytes), lastBytes);
    kinds |= archiveMarksIn(bytes, std::max(behind, kSweptAtBegin), bytes.size());
    _marks = kinds;
    return kinds;
}

const char* ProbedContent::foreignFormat() {
    if (!_foreignFormat) _foreignFormat = ZOV_SPACE::foreignFormat(*this);
    return *_foreignFormat;
}

}  // namespace ZOV_SPACE
