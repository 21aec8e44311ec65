#include "RunLoop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>

#include "useragent/Agent.h"

namespace useragent {
namespace {

// Opened before the signal handler is installed, so a signal at any moment finds it; never closed.
std::atomic<int> g_stopDescriptor{-1};

}  // namespace

void StopCurrentRunLoop() {
    const int savedErrno = errno;
    const std::uint64_t one = 1;
    // Nothing can be done about a failed write here: the counter is then already set.
    [[maybe_unused]] const ssize_t written = write(g_stopDescriptor, &one, sizeof one);
    errno = savedErrno;
}

void HandleSigterm() {
    if (g_stopDescriptor < 0) {
        const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd -- failed");
        }
        g_stopDescriptor = descriptor;
    }
    std::signal(SIGTERM, SigtermHandler);
}

void LeaveSigtermToTheSystem() {
    std::signal(SIGTERM, SIG_DFL);
}

RunLoopStopper::RunLoopStopper(QCoreApplication& application) {
    notifier_ = std::make_unique<QSocketNotifier>(g_stopDescriptor.load(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, &application, [] {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t got = read(g_stopDescriptor, &count, sizeof count);
        QCoreApplication::exit();  // `quit` would close the windows
    });
}

RunLoopStopper::~RunLoopStopper() = default;

}  // namespace useragent
