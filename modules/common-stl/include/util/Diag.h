// Diag.h: diagnostic lines to whoever listens to a thread's work.
//
//     constexpr diag::Unit kDiag{"pattern_assistant"};     // once per source unit
//     kDiag.at(1393).err("Can't open %s", path);           // a line number that hosts know
//     kDiag.at().dbg("probing %s", path);                  // any other: the real source line
//
// A call tells the thread's listener the unit and the line, and then, when it wants lines of that kind, the message.
// Unit names are labels that hosts read, not files; they must have static storage. Where nobody listens nothing is
// formatted.
//
// Everything here is safe from any thread. No caller may hold a lock that the host's callback could want.
#ifndef COMMON_STL_UTIL_DIAG_H
#define COMMON_STL_UTIL_DIAG_H

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace diag {

constexpr std::size_t kMessageSize = 4096;  // Bytes for the message, its NUL included; what is longer is cut.

// Severity.
enum class Kind : unsigned char { info, error, debug };

// Where a line comes from.
struct Position {
    const char* unit;
    int line;
};

// Who hears the lines of a thread's work.
class Listener {
public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    // Where the next line comes from, whether it is wanted or not.
    virtual void storePosition(Position position) = 0;
    virtual Position position() const = 0;
    virtual bool wants(Kind kind) const = 0;
    // A line's text, NUL-terminated, from the position last stored. Only called for kinds that are wanted.
    virtual void deliver(Kind kind, Position position, std::string_view message) = 0;
    // Below which extracted contents are dumped for diagnosis; empty: nowhere.
    virtual std::string dumpDirectory() const { return {}; }
};

// Makes somebody this thread's listener until the object dies.
class ListenerScope {
public:
    explicit ListenerScope(Listener& listener);
    ListenerScope(const ListenerScope&) = delete;
    ListenerScope& operator=(const ListenerScope&) = delete;
    ~ListenerScope();

private:
    Listener* _outer;
};

// Formats and delivers one line at the position last stored.
void print(Kind kind, const char* format, std::va_list arguments) __attribute__((format(printf, 2, 0)));

// Where the next line comes from.
void storePosition(const char* unit, int line);

// The listener's; empty where nobody listens.
std::string dumpDirectory();

// A position in a source unit, from which lines are sent.
class Site {
public:
    constexpr Site(const char* unit, int line) : _position{unit, line} {}

    void dbg(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void err(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    void send(Kind kind, const char* format, std::va_list arguments) const __attribute__((format(printf, 3, 0)));

    Position _position;
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
    void add(Kind kind, Position position, std::string_view message);
    // Delivers each to this thread's listener, unless it does not want its kind any more.
    void deliver() const;
    void shrinkToFit() { _bytes.shrink_to_fit(); }
    std::size_t bytes() const { return _bytes.capacity(); }

private:
    std::string _bytes;  // For each line a header and the message.
};

// Holds back what this thread's listener would hear while the object lives, so that work may be done before its turn
// and be reported when it comes.
class Hold {
public:
    HeldLines take();  // Those so far, in no more memory than they need.

private:
    // Stands in for the listener, whose wishes and position it passes on.
    class Keeper : public Listener {
    public:
        explicit Keeper(Listener* inner) : _inner(inner) {}
        void storePosition(Position position) override;
        Position position() const override;
        bool wants(Kind kind) const override;
        void deliver(Kind kind, Position position, std::string_view message) override;
        std::string dumpDirectory() const override;

        HeldLines lines;

    private:
        Listener* _inner;  // Null where nobody listens.
    };

    static Listener* current();

    Keeper _keeper{current()};
    ListenerScope _scope{_keeper};
};

}  // namespace diag

#endif  // COMMON_STL_UTIL_DIAG_H
