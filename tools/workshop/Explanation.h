// Explanation.h: whether a record matches a content, and where the comparison ends if it does not.
//   Threads: that of the content's event.
#ifndef VOLE_WORKSHOP_EXPLANATION_H
#define VOLE_WORKSHOP_EXPLANATION_H

#include <string>

#include "RecordFiles.h"
#include "vole.h"

// What a scanner asks, in this order.
enum class MatchStep {
    size,  // MD5: whether the content is hashed.
    digest,
    target,     // Check-sums.
    structure,  // Whether there is what offsets count from.
    offset1,
    offset2,
    range1,
    range2,
    checkString,
    checkSum1,
    checkSum2,
    none,  // It matches.
};

// "size", "digest", "target", "pe", "offset-1", ..., "check-string", "check-sum-1", ..., "match".
const char* nameOf(MatchStep step);

struct Explanation {
    MatchStep step;         // The one that fails.
    std::string text = {};  // For people.
    // Where two values differ: in the record's notation, sizes as decimal numbers.
    std::string expected = {};
    std::string actual = {};

    bool matches() const { return step == MatchStep::none; }
};

// Explains records for one content, during its event.
class Explainer {
public:
    explicit Explainer(const vole_content& content) : _content(content) {}

    // The verdict is that of the engine's own scanner, with a list of this one record. Throws LoadError when the
    // content cannot be read, and when the verdict is not what the steps come to, which would be a fault of this
    // program.
    Explanation explain(const Record& record);

private:
    Explanation explainMd5(const Record& record);

    const vole_content& _content;
    std::string _digest;  // Hexadecimal, once it was wanted.
};

#endif  // VOLE_WORKSHOP_EXPLANATION_H
