#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Gate.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "support/XServer.h"
#include "windowlist/LinuxWindowList.h"
#include "windowlist/XcbWindowList.h"

using fake::XServer;
using useragent::WindowInfo;
using useragent::XcbWindowList;
using namespace std::chrono_literals;

namespace {

// Another client, in a process of its own, with one window.
struct Client {
    Client(const std::string& display, const std::string& name, std::vector<std::string> prefix = {})
        : process([&] {
              prefix.insert(prefix.end(), {X_PROGRAM, display, "Navigator", name});
              return prefix;
          }()),
          window(static_cast<xcb_window_t>(std::stoul(process.readLine().value_or("0")))) {}

    std::string owner(const std::string& name) const { return name + " " + std::to_string(process.pid()); }

    fake::ChildProcess process;
    const xcb_window_t window;
};

bool Runs(const std::vector<std::string>& command) {
    return fake::ChildProcess(command).wait() == 0;
}

// A client of the server that makes windows, and keeps the list of them as a window manager does.
class Windows {
 public:
    explicit Windows(const std::string& display) : connection_(xcb_connect(display.c_str(), nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    }
    ~Windows() { xcb_disconnect(connection_); }
    Windows(const Windows&) = delete;
    Windows& operator=(const Windows&) = delete;

    xcb_window_t add(const std::string& instance, const std::string& name) {
        const xcb_window_t window = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root_, 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        if (!name.empty()) {
            setClass(window, instance + '\0' + name + '\0');
        }
        return window;
    }
    void setClass(xcb_window_t window, const std::string& value) {
        setText(window, "WM_CLASS", "STRING", value);
    }
    void setText(xcb_window_t window, const std::string& name, const std::string& type,
                 const std::string& value) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, atom(name), atom(type), 8,
                            static_cast<std::uint32_t>(value.size()), value.data());
        sync();
    }
    // As a panel does for the user.
    void activate(xcb_window_t window) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = atom("_NET_ACTIVE_WINDOW");
        event.data.data32[0] = 2;
        xcb_send_event(connection_, 0, root_,
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&event));
        sync();
    }
    void setState(xcb_window_t window, const std::vector<std::string>& states) {
        std::vector<std::uint32_t> atoms;
        for (const std::string& state : states) {
            atoms.push_back(atom(state));
        }
        setProperty(window, "_NET_WM_STATE", XCB_ATOM_ATOM, atoms);
        sync();
    }
    void list(const std::vector<xcb_window_t>& backToFront) {
        setProperty(root_, "_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, backToFront);
        sync();
    }
    void setOnRoot(const std::string& name, std::uint32_t value, xcb_atom_t type = XCB_ATOM_WINDOW) {
        setProperty(root_, name, type, {value});
        sync();
    }
    // As a window manager does where its user goes to another desktop.
    void goToDesktop(std::uint32_t desktop) { setOnRoot("_NET_CURRENT_DESKTOP", desktop, XCB_ATOM_CARDINAL); }
    void setDesktop(xcb_window_t window, std::uint32_t desktop) {
        setProperty(window, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL, {desktop});
        sync();
    }
    void map(xcb_window_t window) {
        xcb_map_window(connection_, window);
        sync();
    }
    void unmap(xcb_window_t window) {
        xcb_unmap_window(connection_, window);
        sync();
    }
    void putInto(xcb_window_t frame, xcb_window_t window) {
        xcb_reparent_window(connection_, window, frame, 0, 0);
        sync();
    }
    void destroy(xcb_window_t window) {
        xcb_destroy_window(connection_, window);
        sync();
    }
    xcb_atom_t atom(const std::string& name) {
        xcb_intern_atom_reply_t* const reply = xcb_intern_atom_reply(
            connection_,
            xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(name.size()), name.data()), nullptr);
        const xcb_atom_t result = reply->atom;
        std::free(reply);
        return result;
    }
    void setProperty(xcb_window_t window, const std::string& name, xcb_atom_t type,
                     const std::vector<std::uint32_t>& items) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, atom(name), type, 32,
                            static_cast<std::uint32_t>(items.size()), items.data());
    }

 private:
    void sync() {
        std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
    }

    xcb_connection_t* const connection_;
    xcb_window_t root_ = XCB_WINDOW_NONE;
};

class XcbWindowListTest : public testing::Test {
 protected:
    // "owner pid", front to back.
    std::optional<std::vector<std::string>> owners() {
        const auto found = list.copyOnScreenWindows();
        if (!found) {
            return std::nullopt;
        }
        std::vector<std::string> result;
        for (const WindowInfo& window : *found) {
            result.push_back(window.ownerName.value_or("?") + " " + std::to_string(window.ownerPid));
        }
        return result;
    }

    std::vector<std::optional<std::string>> titles() {
        std::vector<std::optional<std::string>> result;
        for (const WindowInfo& window : list.copyOnScreenWindows().value_or(std::vector<WindowInfo>())) {
            result.push_back(window.title);
        }
        return result;
    }

    static std::string own(const std::string& name) { return name + " " + std::to_string(getpid()); }

    fake::LogCapture log;
    XServer server;
    XcbWindowList list{server.display(), 500ms};
    std::unique_ptr<Windows> windows = std::make_unique<Windows>(server.display());
};

TEST_F(XcbWindowListTest, ListsWindowsFromFrontToBack) {
    const Client back(server.display(), "XTerm");
    const Client middle(server.display(), "firefox-esr");
    const Client front(server.display(), "Chromium");
    windows->list({back.window, middle.window, front.window});
    EXPECT_EQ(owners(),
              (std::vector{front.owner("Google Chrome"), middle.owner("Firefox"), back.owner("XTerm")}));
    windows->list({front.window, back.window, middle.window});
    EXPECT_EQ(owners(),
              (std::vector{middle.owner("Firefox"), back.owner("XTerm"), front.owner("Google Chrome")}));
}

// Panels and the like are above all others, and listed.
TEST_F(XcbWindowListTest, TheActiveWindowIsInFrontAlsoBelowAPanel) {
    const Client back(server.display(), "XTerm");
    const Client browser(server.display(), "Chromium");
    const auto panel = windows->add("panel", "Panel");
    windows->list({back.window, browser.window, panel});
    windows->setOnRoot("_NET_ACTIVE_WINDOW", browser.window);
    EXPECT_EQ(owners(), (std::vector{browser.owner("Google Chrome"), own("Panel"), back.owner("XTerm")}));
    EXPECT_TRUE(useragent::WindowsOf(static_cast<std::int32_t>(browser.process.pid()), list).isInFront);
    EXPECT_FALSE(useragent::WindowsOf(getpid(), list).isInFront);
}

TEST_F(XcbWindowListTest, SeesAnotherActiveWindowThatIsNotRaised) {
    const auto lower = windows->add("Navigator", "firefox");
    const auto upper = windows->add("Navigator", "XTerm");
    windows->list({lower, upper});
    windows->setOnRoot("_NET_ACTIVE_WINDOW", upper);
    ASSERT_EQ(owners(), (std::vector{own("XTerm"), own("Firefox")}));
    windows->setOnRoot("_NET_ACTIVE_WINDOW", lower);
    EXPECT_EQ(owners(), (std::vector{own("Firefox"), own("XTerm")}));
}

TEST_F(XcbWindowListTest, AnActiveWindowThatIsNotListedChangesNothing) {
    const auto unlisted = windows->add("menu", "Menu");
    const auto lower = windows->add("Navigator", "firefox");
    windows->list({lower, windows->add("Navigator", "XTerm")});
    const std::vector inOrder{own("XTerm"), own("Firefox")};
    EXPECT_EQ(owners(), inOrder);
    for (const xcb_window_t active : {unlisted, xcb_window_t{XCB_WINDOW_NONE}}) {
        windows->setOnRoot("_NET_ACTIVE_WINDOW", active);
        EXPECT_EQ(owners(), inOrder);
    }
    windows->setOnRoot("_NET_ACTIVE_WINDOW", lower, XCB_ATOM_CARDINAL);
    EXPECT_EQ(owners(), inOrder);
}

TEST_F(XcbWindowListTest, LeavesOutWindowsOfOtherDesktopsThatAreNotShown) {
    constexpr std::uint32_t kAllDesktops = 0xFFFFFFFF;
    const auto here = windows->add("", "here");
    windows->setDesktop(here, 1);
    const auto elsewhere = windows->add("", "elsewhere");
    windows->setDesktop(elsewhere, 2);
    const auto framed = windows->add("", "framed");
    windows->setDesktop(framed, 2);
    windows->putInto(windows->add("", ""), framed);
    windows->map(framed);
    const auto everywhere = windows->add("", "everywhere");
    windows->setDesktop(everywhere, kAllDesktops);
    const auto onAnotherMonitor = windows->add("", "on another monitor");
    windows->setDesktop(onAnotherMonitor, 2);
    windows->map(onAnotherMonitor);
    const auto nowhere = windows->add("", "nowhere");
    windows->list({nowhere, onAnotherMonitor, everywhere, framed, elsewhere, here});
    EXPECT_EQ(owners(), (std::vector{own("here"), own("elsewhere"), own("framed"), own("everywhere"),
                                     own("on another monitor"), own("nowhere")}))
        << "nobody says which desktop is the current one";
    windows->goToDesktop(1);
    EXPECT_EQ(owners(),
              (std::vector{own("here"), own("everywhere"), own("on another monitor"), own("nowhere")}));
}

TEST_F(XcbWindowListTest, SeesAnotherDesktopAndAWindowThatMovesToOne) {
    const auto first = windows->add("", "first");
    windows->setDesktop(first, 0);
    const auto second = windows->add("", "second");
    windows->setDesktop(second, 1);
    windows->list({first, second});
    windows->goToDesktop(0);
    EXPECT_EQ(owners(), std::vector{own("first")});
    windows->goToDesktop(1);
    EXPECT_EQ(owners(), std::vector{own("second")});
    windows->setDesktop(first, 1);
    EXPECT_EQ(owners(), (std::vector{own("second"), own("first")}));
    windows->setDesktop(second, 0);
    windows->map(second);
    EXPECT_EQ(owners(), (std::vector{own("second"), own("first")}));
    windows->unmap(second);
    EXPECT_EQ(owners(), std::vector{own("first")});
}

TEST_F(XcbWindowListTest, LeavesOutHiddenWindows) {
    const auto hidden = windows->add("Navigator", "Chromium");
    windows->setState(hidden, {"_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_HIDDEN"});
    const auto maximized = windows->add("Navigator", "firefox");
    windows->setState(maximized, {"_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_FULLSCREEN"});
    windows->list({hidden, maximized});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

// The list of windows stays the same in these: what is known of them is kept until they tell a change.
TEST_F(XcbWindowListTest, SeesWhatAListedWindowChanges) {
    const xcb_window_t window = windows->add("Navigator", "firefox");
    windows->list({window});
    ASSERT_EQ(owners(), std::vector{own("Firefox")});
    ASSERT_EQ(owners(), std::vector{own("Firefox")});
    windows->setState(window, {"_NET_WM_STATE_HIDDEN"});
    windows->list({window});
    EXPECT_EQ(owners(), std::vector<std::string>());
    windows->setState(window, {});
    windows->setText(window, "_NET_WM_NAME", "UTF8_STRING", "A page");
    windows->list({window});
    EXPECT_EQ(titles(), std::vector{std::optional<std::string>("A page")});
    windows->setText(window, "_NET_WM_NAME", "UTF8_STRING", "Another page");
    windows->list({window});
    EXPECT_EQ(titles(), std::vector{std::optional<std::string>("Another page")});
    windows->setClass(window, std::string("n\0XTerm\0", 8));
    windows->list({window});
    EXPECT_EQ(owners(), std::vector{own("XTerm")});
}

TEST_F(XcbWindowListTest, SeesThatAListedWindowIsGone) {
    const xcb_window_t window = windows->add("Navigator", "firefox");
    windows->list({window});
    ASSERT_EQ(owners(), std::vector{own("Firefox")});
    windows->destroy(window);
    EXPECT_EQ(owners(), std::vector<std::string>());
}

TEST_F(XcbWindowListTest, BelievesTheServerAboutProcessesAndNotTheWindow) {
    const Client other(server.display(), "Chromium");
    const auto lying = windows->add("Navigator", "firefox");
    windows->setProperty(lying, "_NET_WM_PID", XCB_ATOM_CARDINAL,
                         {static_cast<std::uint32_t>(other.process.pid())});
    const auto silent = windows->add("Navigator", "firefox");
    windows->list({lying, silent, other.window});
    EXPECT_EQ(owners(), (std::vector{other.owner("Google Chrome"), own("Firefox"), own("Firefox")}));
}

TEST_F(XcbWindowListTest, LeavesOutWindowsOfOtherMachines) {
    std::array<char, 256> here{};
    ASSERT_EQ(::gethostname(here.data(), here.size() - 1), 0);
    const auto local = windows->add("Navigator", "firefox");
    windows->setText(local, "WM_CLIENT_MACHINE", "STRING", here.data());
    const auto foreign = windows->add("Navigator", "Chromium");
    windows->setText(foreign, "WM_CLIENT_MACHINE", "STRING", std::string(here.data()) + "-2");
    windows->list({local, foreign});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

// A thread may have a name of the machine of its own.
TEST_F(XcbWindowListTest, KnowsWindowsFromBeforeTheMachineGotAnotherName) {
    const auto window = windows->add("Navigator", "firefox");
    windows->setText(window, "WM_CLIENT_MACHINE", "STRING", "first");
    windows->list({window});
    bool isAllowed = false;
    std::vector<std::optional<std::vector<std::string>>> seen;
    std::thread([&] {
        isAllowed = ::unshare(CLONE_NEWUTS) == 0;
        for (const std::string name : {"first", "second"}) {
            isAllowed = isAllowed && ::sethostname(name.data(), name.size()) == 0;
            seen.push_back(owners());
        }
    }).join();
    if (!isAllowed) {
        GTEST_SKIP() << "the system lets nobody but root name the machine";
    }
    EXPECT_THAT(seen, testing::Each(std::vector{own("Firefox")}));
}

TEST_F(XcbWindowListTest, LeavesOutWindowsThatComeOverTheNetwork) {
    windows.reset();
    server.kill();
    XServer open({"-listen", "tcp"});
    Windows far("127.0.0.1" + open.display());
    Windows near(open.display());
    near.list({near.add("Navigator", "firefox"), far.add("Navigator", "Chromium")});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

TEST_F(XcbWindowListTest, FailsWhereTheServerDoesNotTellProcessesAndSaysSoOnce) {
    windows.reset();
    server.kill();
    XServer old({"-nolisten", "tcp", "-extension", "X-Resource"});
    Windows some(old.display());
    some.list({some.add("Navigator", "firefox")});
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(log.count("The X server does not tell which process a window belongs to"), 1U);
}

TEST_F(XcbWindowListTest, AProgramInASandboxHasTheProcessThatTheHostKnows) {
    if (!Runs({"bwrap", "--dev-bind", "/", "/", "--unshare-pid", "true"})) {
        GTEST_SKIP() << "bwrap is not there, or the system does not let it make a sandbox";
    }
    const Client sandboxed(server.display(), "firefox",
                           {"bwrap", "--dev-bind", "/", "/", "--unshare-pid", "--die-with-parent"});
    ASSERT_NE(sandboxed.window, 0U);
    windows->list({sandboxed.window});
    const auto found = list.copyOnScreenWindows();
    ASSERT_TRUE(found);
    ASSERT_EQ(found->size(), 1U);
    const std::string process = "/proc/" + std::to_string(found->front().ownerPid);
    std::string command;
    std::ifstream(process + "/comm") >> command;
    EXPECT_EQ(command, "XProgram");
    std::ifstream status(process + "/status");
    EXPECT_THAT(std::string(std::istreambuf_iterator(status), {}),
                testing::ContainsRegex("NSpid:\t" + std::to_string(found->front().ownerPid) + "\t2\n"))
        << "it is not in a sandbox";
}

// The user goes to a third program.
TEST_F(XcbWindowListTest, OfTwoProcessesOfOneNameTheOneThatWasInFrontStaysThere) {
    const fake::TemporaryFolder folder;
    std::ofstream(folder / "rc.xml") << R"(<openbox_config xmlns="http://openbox.org/3.4/rc"/>)";
    const fake::ChildProcess manager({"openbox", "--sm-disable", "--config-file", folder / "rc.xml"},
                                     {{"DISPLAY", server.display()}});
    const Client first(server.display(), "firefox");
    const Client second(server.display(), "firefox");
    const Client third(server.display(), "XTerm");
    const auto fronts = [&](const Client& front) {
        return fake::WaitFor([&] {
            const auto found = owners();
            return found && found->size() == 3 &&
                   found->front().ends_with(std::to_string(front.process.pid()));
        });
    };
    ASSERT_TRUE(fake::WaitFor([&] { return owners().value_or(std::vector<std::string>()).size() == 3; }));
    for (const Client* const chosen : {&first, &second, &first}) {
        windows->activate(chosen->window);
        ASSERT_TRUE(fronts(*chosen));
        windows->activate(third.window);
        ASSERT_TRUE(fronts(third));
        const auto order = owners();
        ASSERT_TRUE(order);
        EXPECT_EQ(order->at(1), chosen->owner("Firefox")) << testing::PrintToString(*order);
    }
}

TEST_F(XcbWindowListTest, TellsTitlesAsUtf8) {
    const auto both = windows->add("Navigator", "firefox");
    windows->setText(both, "_NET_WM_NAME", "UTF8_STRING",
                     "Stra\xC3\x9F"
                     "e \xE2\x80\x94 Mozilla Firefox");
    windows->setText(both, "WM_NAME", "STRING", "old");
    const auto old = windows->add("Navigator", "firefox");
    windows->setText(old, "WM_NAME", "STRING",
                     "Stra\xDF"
                     "e");
    const auto broken = windows->add("Navigator", "firefox");
    windows->setText(broken, "_NET_WM_NAME", "UTF8_STRING", "\xFF");
    windows->setText(broken, "WM_NAME", "STRING", "old");
    const auto none = windows->add("Navigator", "firefox");
    windows->setText(none, "_NET_WM_NAME", "UTF8_STRING", "");
    windows->list({both, old, broken, none});
    EXPECT_EQ(titles(), (std::vector<std::optional<std::string>>{std::nullopt, "old",
                                                                 "Stra\xC3\x9F"
                                                                 "e",
                                                                 "Stra\xC3\x9F"
                                                                 "e \xE2\x80\x94 Mozilla Firefox"}));
}

TEST_F(XcbWindowListTest, GivesNoNameToWindowsWithoutOne) {
    const auto unnamed = windows->add("", "");
    const auto cutOff = windows->add("", "");
    windows->setClass(cutOff, "firefox");
    windows->list({unnamed, cutOff});
    EXPECT_EQ(owners(), (std::vector{own("?"), own("?")}));
}

TEST_F(XcbWindowListTest, GivesNamesAsUtf8) {
    windows->list({windows->add("x", "M\xFCller")});
    EXPECT_EQ(owners(), std::vector{own("M\xC3\xBCller")});
}

TEST_F(XcbWindowListTest, PassesOverWindowsThatAreGone) {
    const auto left = windows->add("Navigator", "firefox");
    const auto destroyed = windows->add("Navigator", "firefox");
    auto other = std::make_unique<Client>(server.display(), "Chromium");
    const std::string itsOwner = other->owner("Google Chrome");
    windows->list({left, destroyed, other->window});
    EXPECT_EQ(owners(), (std::vector{itsOwner, own("Firefox"), own("Firefox")}));
    windows->destroy(destroyed);
    EXPECT_EQ(owners(), (std::vector{itsOwner, own("Firefox")}));
    other.reset();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
}

TEST_F(XcbWindowListTest, SurvivesPropertiesOfAnyOtherShape) {
    const auto window = windows->add("Navigator", "firefox");
    for (const char* const name : {"_NET_WM_STATE", "WM_CLIENT_MACHINE", "_NET_WM_NAME", "WM_NAME"}) {
        windows->setProperty(window, name, XCB_ATOM_CARDINAL, {1, 2, 3});
    }
    windows->list({window, 0, 0xFFFFFFFF});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

TEST_F(XcbWindowListTest, AnEmptyListIsNoFailure) {
    windows->list({});
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(XcbWindowListTest, FailsWithoutAWindowManager) {
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(log.count("No window manager"), 1U);
    windows->list({windows->add("Navigator", "firefox")});
    EXPECT_EQ(owners(), std::vector{own("Firefox")});
}

TEST_F(XcbWindowListTest, WaitsForAFrozenServerOnlyUntilTheDeadline) {
    windows->list({windows->add("Navigator", "firefox")});
    ASSERT_TRUE(owners());
    server.freeze();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt) << "connecting anew has a deadline, too";
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
    server.thaw();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
}

TEST_F(XcbWindowListTest, ComesBackWithTheServer) {
    windows->list({windows->add("Navigator", "firefox")});
    ASSERT_TRUE(owners());
    windows.reset();
    server.kill();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    server.startAgain();
    windows = std::make_unique<Windows>(server.display());
    windows->list({windows->add("Navigator", "firefox")});
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
}

// With somebody who wants to hear of changes.
class XcbWindowListChangesTest : public XcbWindowListTest {
 protected:
    void SetUp() override {
        list.tellChanges(loop, {[this] { ++told; }, [this] { ++retitled; }});
    }
    void TearDown() override { loop->stop(); }

    // Lists them; true when it listens to root window and windows.
    bool listen(const std::vector<xcb_window_t>& backToFront) {
        windows->list(backToFront);
        const int before = retitled;
        return fake::WaitFor([&] { return owners().has_value(); }) && fake::WaitFor([&] {
                   windows->setText(backToFront.back(), "_NET_WM_NAME", "UTF8_STRING", "A page");
                   return retitled > before;
               });
    }

    static bool tells(const std::atomic<int>& count, const std::function<void()>& change) {
        const int before = count;
        change();
        return fake::WaitFor([&] { return count > before; });
    }

    const std::shared_ptr<cmn::bus::Loop> loop = std::make_shared<cmn::bus::Loop>();
    std::atomic<int> told{0};
    std::atomic<int> retitled{0};
};

TEST_F(XcbWindowListChangesTest, TellsAnotherActiveWindowAnotherOrderAndAHiddenWindowAlsoOfTheNextServer) {
    for (const bool isFirst : {true, false}) {
        const auto one = windows->add("Navigator", "firefox");
        const auto other = windows->add("Navigator", "firefox");
        ASSERT_TRUE(listen({one, other}));
        EXPECT_TRUE(tells(told, [&] { windows->setOnRoot("_NET_ACTIVE_WINDOW", other); }));
        EXPECT_TRUE(tells(told, [&] { windows->list({other, one}); }));
        ASSERT_TRUE(owners());
        EXPECT_TRUE(tells(told, [&] { windows->setState(one, {"_NET_WM_STATE_HIDDEN"}); }));
        EXPECT_TRUE(tells(retitled, [&] { windows->setText(one, "_NET_WM_NAME", "UTF8_STRING", "Next"); }));
        if (isFirst) {
            windows.reset();
            server.kill();
            EXPECT_EQ(owners(), std::nullopt);
            server.startAgain();
            windows = std::make_unique<Windows>(server.display());
        }
    }
}

TEST_F(XcbWindowListChangesTest, TellsAnotherDesktopAndWindowsThatMoveToOneOrAreShownThere) {
    const auto window = windows->add("Navigator", "firefox");
    ASSERT_TRUE(listen({window}));
    EXPECT_TRUE(tells(told, [&] { windows->goToDesktop(1); }));
    EXPECT_TRUE(tells(told, [&] { windows->setDesktop(window, 2); }));
    EXPECT_TRUE(tells(told, [&] { windows->map(window); }));
    EXPECT_TRUE(tells(told, [&] { windows->unmap(window); }));
}

// Who asks for a list sends to the server, and takes what has come from there with it.
TEST_F(XcbWindowListChangesTest, TellsAChangeThatWasReadByAnotherThread) {
    const auto one = windows->add("Navigator", "firefox");
    const auto other = windows->add("Navigator", "firefox");
    ASSERT_TRUE(listen({one, other}));
    fake::Gate isHeldUp;
    fake::Gate gate;
    loop->post([&] {
        isHeldUp.open();
        gate.pass();
    });
    EXPECT_TRUE(isHeldUp.pass());
    EXPECT_TRUE(tells(told, [&] {
        windows->list({other, one});
        EXPECT_TRUE(owners());
        gate.open();
    }));
}

// No thread can be started while it lives: each would have a stack that no address space can hold.
class NoMoreThreads {
 public:
    NoMoreThreads() {
        pthread_attr_t huge;
        pthread_getattr_default_np(&usual_);
        pthread_getattr_default_np(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    ~NoMoreThreads() {
        pthread_setattr_default_np(&usual_);
        pthread_attr_destroy(&usual_);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
    pthread_attr_t usual_{};
};

TEST_F(XcbWindowListTest, FailsWhileNoThreadCanBeStartedAndSaysSoOnce) {
    windows->list({windows->add("Navigator", "firefox")});
    {
        const NoMoreThreads noMore;
        EXPECT_EQ(owners(), std::nullopt);
        EXPECT_EQ(owners(), std::nullopt);
    }
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector{own("Firefox")}; }));
}

TEST(XcbWindowListWithoutServer, FailsAndSaysSoOnce) {
    fake::LogCapture log;
    XcbWindowList list(":99999");
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
}

}  // namespace
