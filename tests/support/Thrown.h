// Thrown.h: what a call throws, as a value to compare with.
#ifndef TESTS_SUPPORT_THROWN_H
#define TESTS_SUPPORT_THROWN_H

#include <string>
#include <typeinfo>

#include "Exception.h"

namespace ZOV_SPACE {

// The message when the call throws exactly an E, otherwise a remark in angle brackets.
template <class E = IOException, class Call>
std::string thrownBy(Call call) {
    try {
        call();
    } catch (Exception& e) {
        if (typeid(e) != typeid(E)) return std::string("<") + typeid(e).name() + ": " + e.getMessage() + ">";
        return e.getMessage();
    }
    return "<nothing>";
}

// The source unit and the line that the exception names.
template <class Call>
std::string locationThrownBy(Call call) {
    try {
        call();
    } catch (Exception& e) {
        return e.getErrorLocation();
    }
    return "<nothing>";
}

// The source unit alone.
template <class Call>
std::string unitThrownBy(Call call) {
    const std::string location = locationThrownBy(call);
    return location.substr(0, location.find(", line"));
}

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_THROWN_H
