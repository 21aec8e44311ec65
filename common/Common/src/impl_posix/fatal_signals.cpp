#include "fatal_signals.h"

#include <poll.h>

#include <array>
#include <csignal>

namespace cmn {

namespace {

struct FatalSignal {
    int number;
    std::string_view name;
    struct sigaction before;
};

std::array<FatalSignal, 5> g_signals{{{SIGABRT, "SIGABRT", {}},
                                      {SIGBUS, "SIGBUS", {}},
                                      {SIGFPE, "SIGFPE", {}},
                                      {SIGILL, "SIGILL", {}},
                                      {SIGSEGV, "SIGSEGV", {}}}};
FatalSignalHandler g_handler = nullptr;

extern "C" void HandleFatalSignal(int number, siginfo_t* info, void*) {
    for (const FatalSignal& signal : g_signals) {
        if (signal.number != number)
            continue;
        // First of all: should the handler fail in its turn, the process ends.
        sigaction(number, &signal.before, nullptr);
        g_handler(signal.name);
    }
    // A fault comes again by itself, with the place where it happened; what somebody sent does not.
    const bool sent = info->si_code <= 0 || info->si_code == SI_USER;
    if (sent)
        raise(number);
}

}  // namespace

void HandleFatalSignals(FatalSignalHandler handler) {
    g_handler = handler;
    for (FatalSignal& signal : g_signals) {
        struct sigaction action {};
        action.sa_sigaction = HandleFatalSignal;
        action.sa_flags = SA_SIGINFO;
        sigemptyset(&action.sa_mask);
        sigaction(signal.number, &action, &signal.before);
    }
}

void ShortPause() noexcept {
    poll(nullptr, 0, 1);
}

}  // namespace cmn
