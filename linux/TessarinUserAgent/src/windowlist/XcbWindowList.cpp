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
enum Question : std::size_t { kState, kDesktop, kClass, kMachine, kTitle, kOldTitle, kQuestions };

// What is asked of the root window, in this order.
enum RootQuestion : std::size_t { kStacking, kActive, kCurrentDesktop };

constexpr std::uint32_t kAllDesktops = 0xFFFFFFFF;

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

    struct Layout {
        // As the root window says. The active window comes first whatever is above it: panels are, and some
        // window managers never raise it.
        static Layout of(const std::vector<Property>& root);
        bool operator==(const Layout&) const = default;

        std::vector<xcb_window_t> frontToBack;
        std::optional<std::uint32_t> desktop;  // the current one
    };

    std::optional<std::vector<WindowInfo>> read(Deadline deadline);
    std::optional<std::vector<Property>> askRoot(Deadline deadline);
    std::optional<std::set<xcb_window_t>> findElsewhere(const std::vector<Property>& answers,
                                                        Deadline deadline);
    std::optional<WindowInfo> describe(std::int32_t process, const Property* properties) const;
    std::optional<std::vector<WindowInfo>> failed(Outcome reason);
    void report(Outcome outcome);

    XcbConnection::Connector connector;
    const std::chrono::milliseconds callDeadline;
    std::unique_ptr<XcbConnection> connection;
    std::shared_ptr<cmn::bus::Loop> loop;  // null while nobody wants to hear of changes
    ScreenEvents told;
    std::shared_ptr<XcbOrderWatch> orderWatch;  // on a connection of its own
    Layout layout;                              // as the last read saw it
    std::vector<WindowInfo> windows;            // what the last one that succeeded gave
    Outcome lastOutcome = Outcome::unknown;
    std::set<std::string> hostNames;  // this machine may get another one while programs run
};

XcbWindowList::Parts::Layout XcbWindowList::Parts::Layout::of(const std::vector<Property>& root) {
    Layout layout{root[kStacking].items(), root[kCurrentDesktop].firstItem()};
    auto& order = layout.frontToBack;
    std::reverse(order.begin(), order.end());
    const auto active = std::find(order.begin(), order.end(), root[kActive].firstItem());
    if (active != order.end()) {
        std::rotate(order.begin(), active, active + 1);
    }
    return layout;
}

std::optional<std::vector<Property>> XcbWindowList::Parts::askRoot(Deadline deadline) {
    if (!connection && !(connection = connector.connect(deadline))) {
        return std::nullopt;
    }
    const xcb_window_t root = connection->root();
    return connection->ask({{root, connection->atom(Atom::clientListStacking), XCB_ATOM_WINDOW},
                            {root, connection->atom(Atom::activeWindow), XCB_ATOM_WINDOW},
                            {root, connection->atom(Atom::currentDesktop), XCB_ATOM_CARDINAL}},
                           deadline);
}

// The windows that are on another desktop and not shown. Those that are shown stay: on several monitors a
// window manager may show several desktops, of which one is the current one.
std::optional<std::set<xcb_window_t>> XcbWindowList::Parts::findElsewhere(
    const std::vector<Property>& answers, Deadline deadline) {
    std::vector<xcb_window_t> ofOthers;
    for (std::size_t i = 0; layout.desktop && i < layout.frontToBack.size(); ++i) {
        const std::uint32_t desktop =
            answers[i * kQuestions + kDesktop].firstItem().value_or(*layout.desktop);
        if (desktop != *layout.desktop && desktop != kAllDesktops) {
            ofOthers.push_back(layout.frontToBack[i]);
        }
    }
    const auto shown = connection->askViewable(ofOthers, deadline);
    if (!shown) {
        return std::nullopt;
    }
    std::set<xcb_window_t> elsewhere(ofOthers.begin(), ofOthers.end());
    for (const xcb_window_t window : *shown) {
        elsewhere.erase(window);
    }
    return elsewhere;
}

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
    const auto root = askRoot(deadline);
    if (!root) {
        return failed(Outcome::noServer);
    }
    if (!connection->tellsProcesses()) {
        return failed(Outcome::noProcesses);
    }
    if ((*root)[kStacking].format == 0) {
        return failed(Outcome::noWindowManager);
    }
    const Layout before = std::exchange(layout, Layout::of(*root));
    const bool isSame = !connection->hasHeard() && layout == before;
    if (isSame && lastOutcome == Outcome::success) {
        return windows;
    }
    // Again: the number of a window may be that of another one now.
    connection->listenTo(layout.frontToBack);
    std::vector<XcbConnection::Question> questions;
    for (const xcb_window_t window : layout.frontToBack) {
        questions.push_back({window, connection->atom(Atom::wmState), XCB_ATOM_ATOM});
        questions.push_back({window, connection->atom(Atom::wmDesktop), XCB_ATOM_CARDINAL});
        questions.push_back({window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING});
        questions.push_back({window, XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING});
        questions.push_back({window, connection->atom(Atom::wmName), connection->atom(Atom::utf8String)});
        questions.push_back({window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING});
    }
    const auto answers = connection->ask(questions, deadline);
    // The server's word: what a window says of its process is what the process is called in its sandbox.
    const auto processes = answers ? connection->askProcesses(layout.frontToBack, deadline) : std::nullopt;
    const auto elsewhere = processes ? findElsewhere(*answers, deadline) : std::nullopt;
    if (!elsewhere) {
        return failed(Outcome::noServer);
    }
    if (loop && !orderWatch) {
        if (auto other = connector.connect(deadline)) {
            orderWatch = XcbOrderWatch::begin(std::move(other), loop, told);
        }
    }
    if (orderWatch) {
        orderWatch->listenTo(layout.frontToBack);
    }
    hostNames.insert(HostName());
    windows.clear();
    for (std::size_t i = 0; i < processes->size(); ++i) {
        auto window = describe((*processes)[i], &(*answers)[i * kQuestions]);
        if (window && !elsewhere->contains(layout.frontToBack[i])) {
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
