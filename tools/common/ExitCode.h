// ExitCode.h: what the program returns.
#ifndef VOLE_TOOL_EXIT_CODE_H
#define VOLE_TOOL_EXIT_CODE_H

// A finding, whatever a command looks for, outweighs errors: errors show only when nothing was found.
enum ExitCode { kExitClean = 0, kExitFound = 1, kExitErrors = 2 };

#endif  // VOLE_TOOL_EXIT_CODE_H
