// Messages.h: what the program says on standard error, and the system's words for what went wrong.
#ifndef VOLE_TOOL_MESSAGES_H
#define VOLE_TOOL_MESSAGES_H

#include <string>
#include <string_view>

// Writes `prefix` and `text`, escaped, as one line.
void printMessage(std::string_view prefix, std::string_view text);

// printMessage() in the program's own name.
inline void complain(std::string_view text) { printMessage("vole: ", text); }

inline constexpr const char* kMemoryRanOut = "memory ran out";

// "Permission denied" and the like, untranslated.
std::string systemText(int errorNumber);

#endif  // VOLE_TOOL_MESSAGES_H
