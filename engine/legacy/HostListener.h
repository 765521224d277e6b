// HostListener.h: the host as the listener of the engine's diagnostics: the settings of setDebugger() and
// setDumpPath(), and the exported globals.
//
// A line's position goes to the two exported variables, then its text to the host's callback as read at that moment, so
// that no lock is held while the host's code runs. Lines of other threads may come between: the position is only a
// hint.
#ifndef ENGINE_LEGACY_HOSTLISTENER_H
#define ENGINE_LEGACY_HOSTLISTENER_H

#include <string>

#include "util/Diag.h"

namespace host {

// Has no state of its own: any number of threads share it.
diag::Listener& listener();

// The debugger record's fields, as setDebugger() and setDumpPath() change them while other threads log.
void setSink(int level, void (*print)(const char*));
void setDumpPath(const char* path);  // Null counts as empty.

}  // namespace host

#endif  // ENGINE_LEGACY_HOSTLISTENER_H
