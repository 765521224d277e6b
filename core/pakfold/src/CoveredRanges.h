// CoveredRanges: which bytes of a content are the business of members that were found in it. An archive that begins in
// such bytes is read when the member itself is scanned, and is none of the content's own.
//
// Remembers a bounded number of ranges that do not touch: what is forgotten may be read twice. Used by one thread at a
// time.
#ifndef PAKFOLD_COVEREDRANGES_H
#define PAKFOLD_COVEREDRANGES_H

#include <cstddef>
#include <cstdint>
#include <map>

namespace ZOV_SPACE {

class CoveredRanges {
public:
    static constexpr std::size_t kMost = std::size_t{1} << 16;

    void add(std::int64_t start, std::int64_t end);  // Ranges that touch become one.
    // Behind the range that has the position; the position itself where none has.
    std::int64_t endAt(std::int64_t position) const;
    bool has(std::int64_t position) const { return endAt(position) != position; }
    // Where the next range begins behind a position that none has; the largest number where none does.
    std::int64_t nextBehind(std::int64_t position) const;

private:
    std::map<std::int64_t, std::int64_t> _endByStart;
};

}  // namespace ZOV_SPACE

#endif  // PAKFOLD_COVEREDRANGES_H
