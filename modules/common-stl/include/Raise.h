// Raise.h: how exceptions are thrown, so that no throw site can forget its position.
//
//     constexpr ThrowUnit kUnit{"io/BufferBase"};          // once per source unit
//     kUnit.raise<IOException>("Index out of bound");      // carries "io/BufferBase" and this line
//     kUnit.raiseAt<IOException>(57, "unexpected EOF");    // a line number that hosts know
//
// A unit name is a label that hosts read in messages, not a file: the code behind one label may live in several
// files. Code that throws without a position uses raise<E>() below.
#ifndef COMMON_STL_RAISE_H
#define COMMON_STL_RAISE_H

#include <cerrno>
#include <cstring>
#include <string>

#include "Exception.h"

namespace ZOV_SPACE {

template <class E>
[[noreturn]] void raise(const std::string& message) {
    throw E(message);
}

// The system's text for an error number; unlike strerror(), safe to call from any thread.
std::string systemErrorText(int errorNumber = errno);

class ThrowUnit {
public:
    explicit constexpr ThrowUnit(const char* unit) : _unit(unit) {}

    template <class E>
    [[noreturn]] void raise(const std::string& message, int line = __builtin_LINE()) const {
        throw E(message, _unit, line);
    }

    template <class E>
    [[noreturn]] void raiseAt(int line, const std::string& message) const {
        throw E(message, _unit, line);
    }

private:
    const char* _unit;
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_RAISE_H
