// ProbedContent: a content while it is found out what it is. What several ask is looked for once.
#ifndef PAKFOLD_UNARCHIVER_PROBEDCONTENT_H
#define PAKFOLD_UNARCHIVER_PROBEDCONTENT_H

#include <optional>

#include "io/BufferBase.h"

namespace ZOV_SPACE {

// Borrows the content; throws what that throws. Used by one thread at a time.
class ProbedContent {
public:
    explicit ProbedContent(BufferBase& content) : _bytes(content) {}

    BufferBase& bytes() { return _bytes; }

    // The kinds of ArchiveMark that stand in the first MiB.
    unsigned marksAtBegin();
    // The kinds that stand there, among the last 128 KiB, or anywhere behind a program.
    unsigned marks();
    // Whether marks() was asked for and has none of these.
    bool isKnownWithout(unsigned kinds) const { return _marks && (*_marks & kinds) == 0; }
    // As foreignFormat() has it.
    const char* foreignFormat();

private:
    BufferBase& _bytes;
    std::optional<unsigned> _marksAtBegin, _marks;
    std::optional<const char*> _foreignFormat;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_UNARCHIVER_PROBEDCONTENT_H
