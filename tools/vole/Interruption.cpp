#include "Interruption.h"

#include <csignal>

namespace {

struct Signal {
    int number;
    const char* name;
};
constexpr Signal kSignals[] = {{SIGHUP, "SIGHUP"}, {SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}};

volatile std::sig_atomic_t notedSignal = 0;

void dieOf(int number) {
    std::signal(number, SIG_DFL);
    std::raise(number);
}

extern "C" void noteSignal(int number) {
    if (notedSignal != 0) dieOf(number);
    notedSignal = number;
}

}  // namespace

void noteSignals() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;  // The scan under way is finished as if nothing had come.
    for (const Signal& signal : kSignals) {
        struct sigaction before;
        ::sigaction(signal.number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) ::sigaction(signal.number, &action, nullptr);
    }
}

bool isInterrupted() { return notedSignal != 0; }

const char* interruptingSignal() {
    const Signal* signal = kSignals;
    while (signal->number != notedSignal) ++signal;
    return signal->name;
}

void dieIfInterrupted() {
    if (isInterrupted()) dieOf(notedSignal);
}
