#pragma once

#include <string_view>

namespace cmn {

// Called in a signal handler, on the thread that the signal hit.
using FatalSignalHandler = void (*)(std::string_view signalName) noexcept;

// From now on the handler runs before SIGABRT, SIGBUS, SIGFPE, SIGILL and SIGSEGV do what they did before.
void HandleFatalSignals(FatalSignalHandler handler);

// Lets the calling thread sleep for about a millisecond. May be called in a signal handler.
void ShortPause() noexcept;

}  // namespace cmn
