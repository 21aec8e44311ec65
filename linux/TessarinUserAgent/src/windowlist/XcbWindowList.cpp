#include "windowlist/XcbWindowList.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "common/log.h"
#include "windowlist/OwnerName.h"
#include "windowlist/XcbConnection.h"

namespace useragent {
namespace {

using Atom = XcbConnection::Atom;
using Property = XcbConnection::Property;

// WM_CLASS is two NUL-terminated Latin-1 strings, the second of which names the application.
std::string ApplicationClass(const Property& wmClass) {
    const auto& bytes = wmClass.bytes;
    const auto instanceEnd = std::find(bytes.begin(), bytes.end(), 0);
    if (wmClass.format != 8 || instanceEnd == bytes.end()) {
        return {};
    }
    std::string utf8;
    for (auto byte = instanceEnd + 1; byte != bytes.end() && *byte != 0; ++byte) {
        if (*byte < 0x80) {
            utf8 += static_cast<char>(*byte);
        } else {
            utf8 += static_cast<char>(0xC0 | *byte >> 6);
            utf8 += static_cast<char>(0x80 | (*byte & 0x3F));
        }
    }
    return utf8;
}

std::optional<WindowInfo> Describe(const Property& states, const Property& pid, const Property& wmClass,
                                   xcb_atom_t hidden) {
    const std::vector<std::uint32_t> stateAtoms = states.items();
    const std::vector<std::uint32_t> pids = pid.items();
    if (std::find(stateAtoms.begin(), stateAtoms.end(), hidden) != stateAtoms.end() || pids.empty() ||
        pids[0] == 0) {
        return std::nullopt;
    }
    WindowInfo window;
    window.ownerPid = static_cast<std::int32_t>(pids[0]);
    if (const std::string name = ApplicationClass(wmClass); !name.empty()) {
        window.ownerName = OwnerName(name);
    }
    return window;
}

}  // namespace

struct XcbWindowList::Parts {
    enum class Outcome { unknown, success, noServer, noWindowManager };

    Parts(std::string display, std::chrono::milliseconds deadline)
        : connector(std::move(display)), callDeadline(deadline) {}

    std::optional<std::vector<WindowInfo>> read(Deadline deadline);
    std::optional<std::vector<WindowInfo>> failed(Outcome reason);
    void report(Outcome outcome);

    XcbConnection::Connector connector;
    const std::chrono::milliseconds callDeadline;
    std::unique_ptr<XcbConnection> connection;
    Outcome lastOutcome = Outcome::unknown;
};

std::optional<std::vector<WindowInfo>> XcbWindowList::Parts::read(Deadline deadline) {
    if (!connection) {
        connection = connector.connect(deadline);
    }
    const auto stacking =
        connection ? connection->ask(
                         {{connection->root(), connection->atom(Atom::clientListStacking), XCB_ATOM_WINDOW}},
                         deadline)
                   : std::nullopt;
    if (!stacking) {
        return failed(Outcome::noServer);
    }
    if (stacking->front().format == 0) {
        return failed(Outcome::noWindowManager);
    }
    std::vector<xcb_window_t> frontToBack = stacking->front().items();
    std::reverse(frontToBack.begin(), frontToBack.end());
    std::vector<XcbConnection::Question> questions;
    for (const xcb_window_t window : frontToBack) {
        questions.push_back({window, connection->atom(Atom::wmState), XCB_ATOM_ATOM});
        questions.push_back({window, connection->atom(Atom::wmPid), XCB_ATOM_CARDINAL});
        questions.push_back({window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING});
    }
    const auto answers = connection->ask(questions, deadline);
    if (!answers) {
        return failed(Outcome::noServer);
    }
    std::vector<WindowInfo> windows;
    for (std::size_t i = 0; i < answers->size(); i += 3) {
        if (auto window = Describe((*answers)[i], (*answers)[i + 1], (*answers)[i + 2],
                                   connection->atom(Atom::wmStateHidden))) {
            windows.push_back(std::move(*window));
        }
    }
    report(Outcome::success);
    return windows;
}

std::optional<std::vector<WindowInfo>> XcbWindowList::Parts::failed(Outcome reason) {
    if (reason == Outcome::noServer) {
        connection.reset();  // what it still owes would come too late
    }
    report(reason);
    return std::nullopt;
}

void XcbWindowList::Parts::report(Outcome outcome) {
    if (std::exchange(lastOutcome, outcome) == outcome) {
        return;
    }
    switch (outcome) {
        case Outcome::success:
            TLOG_INFO("Reading the windows of the X server");
            break;
        case Outcome::noServer:
            TLOG_WARN("The X server does not answer");
            break;
        default:
            TLOG_WARN("No window manager lists the windows of the X server");
            break;
    }
}

XcbWindowList::XcbWindowList(std::string display, std::chrono::milliseconds callDeadline)
    : parts_(std::make_unique<Parts>(std::move(display), callDeadline)) {}

XcbWindowList::~XcbWindowList() = default;

std::optional<std::vector<WindowInfo>> XcbWindowList::copyOnScreenWindows() {
    return parts_->read(Clock::now() + parts_->callDeadline);
}

}  // namespace useragent
