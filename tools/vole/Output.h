// Output: lines for a file descriptor, collected into large writes. On a terminal each line appears at once, and so
// does everywhere a line that must not be lost when the process is killed, with what was written before it.
//   Borrows: the descriptor. What is still collected is written by flush(), not by the destructor, so that no
//            failure goes unnoticed.
//   Errors:  the first failed write is kept; from then on everything is dropped.
//   Threads: one at a time.
#ifndef VOLE_TOOL_OUTPUT_H
#define VOLE_TOOL_OUTPUT_H

#include <string>
#include <string_view>

enum class Urgency { canWait, now };

class Output {
public:
    explicit Output(int fd);

    // Writes `line` and a line feed.
    void writeLine(std::string_view line, Urgency urgency = Urgency::canWait);

    // False when this or an earlier write failed.
    bool flush();

    bool failed() const { return _errorNumber != 0; }

    // The system's text for the first failure; REQUIRES: failed().
    std::string errorText() const;

private:
    int _fd;
    bool _isTerminal;
    int _errorNumber = 0;
    std::string _pending;
};

#endif  // VOLE_TOOL_OUTPUT_H
