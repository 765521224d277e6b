// SignalsHeld: signals that would end the process wait while an object of this class lives, for the length of work
// that must not be left half done. They come with the end of the last one on the thread.
//   Threads: of the thread that makes it, which also destroys it. Where others may take them, the signals do not wait.
#ifndef COMMON_STL_SIGNALSHELD_H
#define COMMON_STL_SIGNALSHELD_H

#include <csignal>

namespace ZOV_SPACE {

class SignalsHeld {
public:
    SignalsHeld() {
        if (_count++ != 0) return;
        sigset_t held;
        sigemptyset(&held);
        // Without the last one a write beyond the largest size fails as one to a full disk does.
        for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGXFSZ}) sigaddset(&held, signal);
        ::pthread_sigmask(SIG_BLOCK, &held, &_before);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() {
        if (--_count == 0) ::pthread_sigmask(SIG_SETMASK, &_before, nullptr);
    }

private:
    static inline thread_local unsigned _count = 0;
    static inline thread_local sigset_t _before = {};
};

}  // namespace ZOV_SPACE

#endif  // COMMON_STL_SIGNALSHELD_H
