#include "Messages.h"

#include <cstdio>
#include <system_error>

#include "Escape.h"

void printMessage(std::string_view prefix, std::string_view text) {
    std::string line(prefix);
    appendEscaped(line, text);
    line += '\n';
    std::fputs(line.c_str(), stderr);
}

std::string systemText(int errorNumber) { return std::generic_category().message(errorNumber); }
