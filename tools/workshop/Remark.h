// Remark.h: what a check has to say of one place in a file.
#ifndef VOLE_WORKSHOP_REMARK_H
#define VOLE_WORKSHOP_REMARK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct Remark {
    enum class Severity { warning, error };

    Severity severity;
    std::string_view code;  // A static word: "malformed", ...
    std::reference_wrapper<const std::string> file;
    std::uint64_t line;  // From 1; 0: the whole file.
    std::size_t column;  // In bytes, from 1; 0: the whole line.
    std::string text;    // For people.
};

// Takes remarks one by one.
using TakeRemark = std::function<void(const Remark& remark)>;

#endif  // VOLE_WORKSHOP_REMARK_H
