// Verdict.h: what a scan says, as one text.
#ifndef TESTS_SUPPORT_VERDICT_H
#define TESTS_SUPPORT_VERDICT_H

#include <string>

#include "voleeng.h"

// The name of what was found, otherwise the code.
inline std::string verdictOf(const std::string& path) {
    std::string virus, message;
    const int code = scanFile(path.c_str(), virus, message);
    return code == VOLE_FOUND ? virus : std::to_string(code);
}

#endif  // TESTS_SUPPORT_VERDICT_H
