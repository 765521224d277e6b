// Interruption.h: an ordered end when SIGHUP, SIGINT or SIGTERM asks for one. The first of them is noted and cancels
// the scans under way; a later one ends the process at once, so that nobody has to wait for what does not end.
#ifndef VOLE_TOOL_INTERRUPTION_H
#define VOLE_TOOL_INTERRUPTION_H

#include <csignal>

#include "vole.h"

// From now on the signals are noted. Those that are ignored, as under nohup, stay ignored.
void noteSignals();

// Any thread.
bool isInterrupted();

// REQUIRES: isInterrupted().
const char* interruptingSignal();

// Ends the process by the signal that was noted, if one was: only so does a shell see what happened and end its script.
void dieIfInterrupted();

// Waits until something can be read from the descriptor, or it has ended or failed. False when interrupted meanwhile.
// Any thread.
bool waitReadable(int fd);

// Has a signal cancel the scanner while this object lives. Made and destroyed on the thread that gets the signals,
// while there are no others that do.
class CancelledBySignal {
public:
    explicit CancelledBySignal(vole_scanner* scanner);
    ~CancelledBySignal();
    CancelledBySignal(const CancelledBySignal&) = delete;
    CancelledBySignal& operator=(const CancelledBySignal&) = delete;

private:
    vole_scanner* _scanner;
};

// Keeps the signals from this thread, and from those that it starts for good, while this object lives: start threads
// under it, so that the main thread alone has the signals.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t _before;
};

#endif  // VOLE_TOOL_INTERRUPTION_H
