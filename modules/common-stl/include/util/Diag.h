// Diag.h: diagnostic lines to the host's print callback.
//
//     constexpr diag::Unit kDiag{"pattern_assistant"};     // once per source unit
//     kDiag.at(1393).err("Can't open %s", path);           // a line number that hosts know
//     kDiag.at().dbg("probing %s", path);                  // any other: the real source line
//
// A call stores the unit and the line in the exported LogFileName and LogLineNo, then delivers the line. Unit names
// are labels that hosts read, not files; they must have static storage.
//
// Everything here is safe from any thread. No caller may hold a lock that the host's callback could want.
#ifndef COMMON_STL_UTIL_DIAG_H
#define COMMON_STL_UTIL_DIAG_H

#include <cstdarg>
#include <string>
#include <string_view>

namespace diag {

constexpr std::size_t kPrefixSize = 128;    // Bytes for "[unit:line] ", its NUL included.
constexpr std::size_t kMessageSize = 4096;  // Bytes for the message, its NUL included; what is longer is cut.

// Severity, by what it takes to be printed (a callback is always needed).
enum class Kind : unsigned char {
    info,   // always
    error,  // level 1 and above
    debug,  // level 3 and above; the line carries the position as a prefix
};

// Formats and delivers one line at the position last stored. Costs two loads when nothing is to be printed.
void print(Kind kind, const char* format, std::va_list arguments) __attribute__((format(printf, 2, 0)));

// Where the next line comes from.
void storePosition(const char* unit, int line);

// A position in a source unit, from which lines are sent.
class Site {
public:
    constexpr Site(const char* unit, int line) : _unit(unit), _line(line) {}

    void dbg(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void err(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    const char* _unit;
    int _line;
};

class Unit {
public:
    explicit constexpr Unit(const char* name) : _name(name) {}
    constexpr Site at(int line = __builtin_LINE()) const { return {_name, line}; }

private:
    const char* _name;
};

// Lines that were held back. They share one piece of memory, because the lines of very many contents may wait.
class HeldLines {
public:
    void add(Kind kind, const char* unit, int number, std::string_view message);
    // Delivers each, with its position, unless the level has fallen below its kind's since.
    void deliver() const;
    void shrinkToFit() { _bytes.shrink_to_fit(); }
    std::size_t bytes() const { return _bytes.capacity(); }

private:
    std::string _bytes;  // For each line a header and the message.
};

// Holds back what this thread would deliver while the object lives, so that work may be done before its turn and be
// reported when it comes. One at a time in a thread.
class Hold {
public:
    Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    ~Hold();

    HeldLines take();  // Those so far, in no more memory than they need.

private:
    friend void print(Kind kind, const char* format, std::va_list arguments);

    HeldLines _lines;
};

// The debugger record's fields, as setDebugger() and setDumpPath() change them while other threads log.
void setSink(int level, void (*print)(const char*));
void setDumpPath(const char* path);  // Null counts as empty.
std::string dumpPath();              // A copy.

}  // namespace diag

#endif  // COMMON_STL_UTIL_DIAG_H
