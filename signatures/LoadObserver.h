// LoadObserver: is told what becomes of the lines of pattern files while they are loaded, in the order of the lines.
// Without one, lines that are no records are dropped without a word.
#ifndef SIGNATURES_LOADOBSERVER_H
#define SIGNATURES_LOADOBSERVER_H

#include <cstdint>
#include <string_view>

#include "PatternLineReader.h"
#include "RecordFault.h"

enum class RecordKind : char { md5 = 'm', checkSum = 'c' };

class LoadObserver {
public:
    LoadObserver() = default;
    LoadObserver(const LoadObserver&) = delete;
    LoadObserver& operator=(const LoadObserver&) = delete;
    virtual ~LoadObserver() = default;

    // A line that is not in the set, or not as it stands in the file. Both are valid during the call. What is thrown
    // ends the load of the file, with the lines before this one in the set.
    virtual void onProblem(const PatternLine& line, const RecordFault& fault) = 0;

    // A line "#count:", and whether it stands where such lines count. Must not throw. Default: nothing.
    virtual void onCount(const PatternLine&, bool) {}

    // The texts of one or more records that were accepted, in their order and with a line feed between each two; the
    // first one's line. Must not throw.
    virtual void onRecords(RecordKind kind, std::string_view texts, std::uint64_t firstLine) = 0;

    // A file was read to its end. Its last line, without a line feed or not; 0 when it has none. Must not throw.
    // Default: nothing.
    virtual void onEnd(std::uint64_t /*lastLine*/) {}
};

#endif  // SIGNATURES_LOADOBSERVER_H
