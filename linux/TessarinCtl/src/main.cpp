#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "common/log.h"
#include "common/log_place.h"

namespace {

constexpr std::chrono::milliseconds kPauseBetweenLooks{200};

// 0 when the standard output is no terminal.
std::size_t ColumnsOfTerminal() {
    winsize size{};
    return ::isatty(STDOUT_FILENO) == 1 && ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The libraries' log is the agent's; this program says itself what went wrong.
    SetLogFileExtension(cmn::kNoLogFile);
    SetLogLevel(LogLevel::Silent);
    ctl::Console console{std::cin, std::cout, std::cerr, ColumnsOfTerminal(), [] {
                             std::this_thread::sleep_for(kPauseBetweenLooks);
                             return std::cout.good();
                         }};
    const int code =
        ctl::RunCommandLine({argv + 1, argv + argc}, ctl::Commands(), ctl::OwnSurroundings(), console);
    std::cout.flush();
    return std::cout.good() ? code : ctl::kSomethingIsWrong;
}
