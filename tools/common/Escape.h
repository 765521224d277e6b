// Escape.h: makes names that others chose safe to print.
#ifndef VOLE_TOOL_ESCAPE_H
#define VOLE_TOOL_ESCAPE_H

#include <string>
#include <string_view>

// Appends `text` to `line` so that it can neither end the line nor steer a terminal. Well-formed UTF-8 passes
// unchanged, except: control characters (C0, DEL and C1), line separators and characters that turn the writing
// direction become \n, \t, \r or one \xHH per byte; so does every byte that is not UTF-8. A backslash is doubled,
// which keeps the result unambiguous.
void appendEscaped(std::string& line, std::string_view text);

#endif  // VOLE_TOOL_ESCAPE_H
