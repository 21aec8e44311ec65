#include "SessionSurroundings.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "common/ScopedAction.h"
#include "common/threads.h"
#include "linux_bus/Connection.h"
#include "windowlist/XcbConnection.h"

namespace useragent {

namespace {

constexpr std::chrono::seconds kDeadline{2};
constexpr std::chrono::milliseconds kPauseBetweenQuestions{10};

// One that reads the display's events, one for all connections to message buses, and one that connects to the
// display on trial. The others are for programs of the same user that start meanwhile.
constexpr std::size_t kToolkitThreads = 3 + 2;

bool X11IsNamed() {
    const char* const display = std::getenv("DISPLAY");
    return display != nullptr && *display != '\0';
}

bool X11Answers(const GoOn& goOn) {
    if (!X11IsNamed()) {
        return false;
    }
    XcbConnection::Connector connector(std::getenv("DISPLAY"));
    const Deadline deadline = Clock::now() + kDeadline;
    while (!connector.awaitServer(std::min(deadline, Clock::now() + kPauseBetweenQuestions))) {
        if (Clock::now() >= deadline || !goOn()) {
            return false;
        }
    }
    return connector.connect(deadline) != nullptr;
}

// A connection to the compositor; -1 when there is none.
int ConnectToWayland() {
    const char* const name = std::getenv("WAYLAND_DISPLAY");
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    if (name == nullptr || *name == '\0') {
        return -1;
    }
    const std::string path = std::filesystem::path(folder != nullptr ? folder : "") / name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return -1;
    }
    path.copy(address.sun_path, path.size());
    const int connection = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connection >= 0 &&
        ::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(connection);
        return -1;
    }
    return connection;
}

// The protocol's question for a sign of life: the display (object 1) is to call the new object 2 back.
bool WaylandAnswers(const GoOn& goOn) {
    const int connection = ConnectToWayland();
    if (connection < 0) {
        return false;
    }
    const cmn::ScopedAction end([&] { ::close(connection); });
    constexpr std::uint32_t kDisplay = 1;
    constexpr std::uint32_t kCallback = 2;
    constexpr std::uint32_t kSync = 0;
    constexpr std::uint32_t kLength = 12;
    const std::array<std::uint32_t, 3> sync{kDisplay, kLength << 16U | kSync, kCallback};
    if (::send(connection, sync.data(), kLength, MSG_NOSIGNAL) != kLength) {
        return false;
    }
    const Deadline deadline = Clock::now() + kDeadline;
    pollfd answer{connection, POLLIN, 0};
    while (::poll(&answer, 1, static_cast<int>(kPauseBetweenQuestions.count())) == 0) {
        if (Clock::now() >= deadline || !goOn()) {
            return false;
        }
    }
    char first = 0;
    return ::recv(connection, &first, 1, 0) == 1;
}

}  // namespace

bool SessionBusAnswers(const std::string& address, const GoOn& goOn) {
    const auto loop = std::make_shared<cmn::bus::Loop>();
    std::promise<bool> promise;
    std::future<bool> answer = promise.get_future();
    std::once_flag once;  // it may be lost again
    const auto tell = [&](bool answers) { std::call_once(once, [&] { promise.set_value(answers); }); };
    const auto connection =
        cmn::bus::Connection::open(loop, {.address = address, .connectDeadline = kDeadline},
                                   {[&] { tell(true); }, [&](const std::string&) { tell(false); }, {}});
    const cmn::ScopedAction end([&] { loop->stop(); });
    while (answer.wait_for(kPauseBetweenQuestions) != std::future_status::ready) {
        if (!goOn()) {
            return false;
        }
    }
    return answer.get();
}

Displays DisplaysThatAnswer(const GoOn& goOn) {
    if (WaylandAnswers(goOn)) {
        return {.x11 = X11IsNamed(), .wayland = true};
    }
    return {.x11 = X11Answers(goOn), .wayland = false};
}

void RequireToolkitThreads() {
    std::promise<void> enough;
    const std::shared_future<void> wait = enough.get_future().share();
    std::array<pid_t, kToolkitThreads> ids{};
    std::vector<std::thread> threads;
    const cmn::ScopedAction end([&] {
        enough.set_value();
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i].join();
            // The system counts a thread for a moment longer.
            while (::tgkill(::getpid(), ids[i], 0) == 0) {
                std::this_thread::yield();
            }
        }
    });
    for (pid_t& id : ids) {
        threads.push_back(cmn::MakeThread([&] {
            return std::thread([&id, wait] {
                id = ::gettid();
                wait.wait();
            });
        }));
    }
}

}  // namespace useragent
