#include "windowlist/XcbWindowList.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <set>
#include <utility>

#include "common/log.h"
#include "common/utf8.h"
#include "windowlist/OwnerName.h"
#include "windowlist/XcbConnection.h"
#include "windowlist/XcbOrderWatch.h"

namespace useragent {
namespace {

using Atom = XcbConnection::Atom;
using Property = XcbConnection::Property;

// What is asked of each window, in this order.
enum Question : std::size_t { kState, kClass, kMachine, kTitle, kOldTitle, kQuestions };

// A property of Latin-1 text up to the first NUL after `begin`.
std::string Latin1Text(const Property& property, std::size_t begin = 0) {
    std::string utf8;
    const auto& bytes = property.bytes;
    for (std::size_t i = begin; property.format == 8 && i < bytes.size() && bytes[i] != 0; ++i) {
        if (bytes[i] < 0x80) {
            utf8 += static_cast<char>(bytes[i]);
        } else {
            utf8 += static_cast<char>(0xC0 | bytes[i] >> 6);
            utf8 += static_cast<char>(0x80 | (bytes[i] & 0x3F));
        }
    }
    return utf8;
}

// WM_CLASS is two NUL-terminated texts, the second of which names the application.
std::string ApplicationClass(const Property& wmClass) {
    const auto instanceEnd = std::find(wmClass.bytes.begin(), wmClass.bytes.end(), 0);
    return Latin1Text(wmClass, static_cast<std::size_t>(instanceEnd - wmClass.bytes.begin()) + 1);
}

std::optional<std::string> TitleOf(const Property& title, const Property& oldTitle) {
    std::string text;
    if (title.format == 8) {
        text.assign(title.bytes.begin(), std::find(title.bytes.begin(), title.bytes.end(), 0));
    }
    if (text.empty() || !cmn::IsValidUtf8(text)) {
        text = Latin1Text(oldTitle);
    }
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

struct XcbWindowList::Parts {
    enum class Outcome { unknown, success, noServer, noProcesses, noWindowManager };

    Parts(std::string display, std::chrono::milliseconds deadline)
        : connector(std::move(display)), callDeadline(deadline) {}

    std::optional<std::vector<WindowInfo>> read(Deadline deadline);
    std::optional<WindowInfo> describe(std::int32_t process, const Property* properties) const;
    std::optional<std::vector<WindowInfo>> failed(Outcome reason);
    void report(Outcome outcome);

    XcbConnection::Connector connector;
    const std::chrono::milliseconds callDeadline;
    std::unique_ptr<XcbConnection> connection;
    std::shared_ptr<cmn::bus::Loop> loop;  // null while nobody wants to hear of changes
    ScreenEvents told;
    std::shared_ptr<XcbOrderWatch> orderWatch;  // on a connection of its own
    std::vector<xcb_window_t> listed;           // by the last read that succeeded, back to front
    std::vector<WindowInfo> windows;            // what it gave
    Outcome lastOutcome = Outcome::unknown;
    std::set<std::string> hostNames;  // this machine may get another one while programs run
};

// Nothing for a window that is hidden or gone, or of a process of another machine: it may come from there
// through a program of this one.
std::optional<WindowInfo> XcbWindowList::Parts::describe(std::int32_t process,
                                                         const Property* properties) const {
    const std::vector<std::uint32_t> states = properties[kState].items();
    const std::string machine = Latin1Text(properties[kMachine]);
    const bool isOfAnother = !machine.empty() && !hostNames.contains(machine);
    if (process <= 0 || isOfAnother || properties[kState].isGone ||
        std::find(states.begin(), states.end(), connection->atom(Atom::wmStateHidden)) != states.end()) {
        return std::nullopt;
    }
    WindowInfo window;
    window.ownerPid = process;
    if (const std::string name = ApplicationClass(properties[kClass]); !name.empty()) {
        window.ownerName = OwnerName(name);
    }
    window.title = TitleOf(properties[kTitle], properties[kOldTitle]);
    return window;
}

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
    if (!connection->tellsProcesses()) {
        return failed(Outcome::noProcesses);
    }
    if (stacking->front().format == 0) {
        return failed(Outcome::noWindowManager);
    }
    std::vector<xcb_window_t> frontToBack = stacking->front().items();
    const bool isSame = !connection->hasHeard() && frontToBack == listed;
    if (isSame && lastOutcome == Outcome::success) {
        return windows;
    }
    listed = frontToBack;
    connection->listenTo(listed);  // again: the number of a window may be that of another one now
    std::reverse(frontToBack.begin(), frontToBack.end());
    std::vector<XcbConnection::Question> questions;
    for (const xcb_window_t window : frontToBack) {
        questions.push_back({window, connection->atom(Atom::wmState), XCB_ATOM_ATOM});
        questions.push_back({window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING});
        questions.push_back({window, XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING});
        questions.push_back({window, connection->atom(Atom::wmName), connection->atom(Atom::utf8String)});
        questions.push_back({window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING});
    }
    const auto answers = connection->ask(questions, deadline);
    // The server's word: what a window says of its process is what the process is called in its sandbox.
    const auto processes = answers ? connection->askProcesses(frontToBack, deadline) : std::nullopt;
    if (!processes) {
        return failed(Outcome::noServer);
    }
    if (loop && !orderWatch) {
        if (auto other = connector.connect(deadline)) {
            orderWatch = XcbOrderWatch::begin(std::move(other), loop, told);
        }
    }
    if (orderWatch) {
        orderWatch->listenTo(listed);
    }
    hostNames.insert(HostName());
    windows.clear();
    for (std::size_t i = 0; i < processes->size(); ++i) {
        if (auto window = describe((*processes)[i], &(*answers)[i * kQuestions])) {
            windows.push_back(std::move(*window));
        }
    }
    report(Outcome::success);
    return windows;
}

std::optional<std::vector<WindowInfo>> XcbWindowList::Parts::failed(Outcome reason) {
    if (reason == Outcome::noServer) {
        connection.reset();  // what it still owes would come too late
        orderWatch.reset();
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
        case Outcome::noProcesses:
            TLOG_WARN(
                "The X server does not tell which process a window belongs to: it lacks X-Resource 1.2");
            break;
        default:
            TLOG_WARN("No window manager lists the windows of the X server");
            break;
    }
}

XcbWindowList::XcbWindowList(std::string display, std::chrono::milliseconds callDeadline)
    : parts_(std::make_unique<Parts>(std::move(display), callDeadline)) {}

XcbWindowList::~XcbWindowList() = default;

void XcbWindowList::tellChanges(std::shared_ptr<cmn::bus::Loop> loop, ScreenEvents told) {
    const std::lock_guard lock(mutex_);
    parts_->loop = std::move(loop);
    parts_->told = std::move(told);
}

std::optional<std::vector<WindowInfo>> XcbWindowList::copyOnScreenWindows() {
    const std::lock_guard lock(mutex_);
    return parts_->read(Clock::now() + parts_->callDeadline);
}

}  // namespace useragent
