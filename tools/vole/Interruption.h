// Interruption.h: an ordered end when SIGHUP, SIGINT or SIGTERM asks for one. The first of them is only noted, for the
// walk to look at between two files; the next one ends the process at once, so that nobody has to wait for a long scan.
#ifndef VOLE_TOOL_INTERRUPTION_H
#define VOLE_TOOL_INTERRUPTION_H

// From now on the signals are noted. Those that are ignored, as under nohup, stay ignored.
void noteSignals();

bool isInterrupted();

// REQUIRES: isInterrupted().
const char* interruptingSignal();

// Ends the process by the signal that was noted, if one was: only so does a shell see what happened and end its script.
void dieIfInterrupted();

#endif  // VOLE_TOOL_INTERRUPTION_H
