#include "SessionSurroundings.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>

#include "XcbConnection.h"
#include "linux_usercommon/BusProbe.h"

namespace useragent {

namespace {

constexpr std::chrono::seconds kDeadline{2};

bool X11Answers() {
    const char* const display = std::getenv("DISPLAY");
    return display != nullptr && *display != '\0' &&
           XcbConnection::Connector(display).connect(std::chrono::steady_clock::now() + kDeadline) != nullptr;
}

bool WaylandAnswers() {
    const char* const name = std::getenv("WAYLAND_DISPLAY");
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    if (name == nullptr || *name == '\0') {
        return false;
    }
    std::error_code ignored;
    const auto socket = std::filesystem::path(folder != nullptr ? folder : "") / name;
    return std::filesystem::is_socket(socket, ignored);
}

}  // namespace

bool SessionBusAnswers() {
    const auto pool = std::make_shared<cmn::TaskPool>(1);
    const auto answered = std::make_shared<std::promise<bool>>();
    auto answer = answered->get_future();
    cmn::ProbeBus(
        pool, cmn::ParseBusAddresses(cmn::SessionBusAddress()), kDeadline,
        [answered](const cmn::BusProbeResult& result) { answered->set_value(result.address.has_value()); });
    const bool answers = answer.get();
    pool->stop();
    return answers;
}

bool DisplayAnswers() {
    return WaylandAnswers() || X11Answers();
}

}  // namespace useragent
