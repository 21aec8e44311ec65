#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "windowlist/XcbWindowList.h"

using useragent::WindowInfo;
using useragent::XcbWindowList;
using namespace std::chrono_literals;

namespace {

// An X server of the test's own, without a window manager. Its number is one that no server chooses by
// itself: another test's would take it over while this one is away.
class XServer {
 public:
    XServer() : number_(std::to_string(1000 + getpid() % 30'000)) { start(); }

    std::string display() const { return ":" + number_; }
    void freeze() const { process_->signal(SIGSTOP); }
    void thaw() const { process_->signal(SIGCONT); }
    void kill() { process_.reset(); }
    void startAgain() { start(); }

 private:
    void start() {
        process_ = std::make_unique<fake::ChildProcess>(std::vector<std::string>{
            "Xvfb", ":" + number_, "-displayfd", "1", "-nolisten", "tcp", "-screen", "0", "640x480x24"});
        EXPECT_EQ(process_->readLine(), number_) << "the server is not there";
    }

    const std::string number_;
    std::unique_ptr<fake::ChildProcess> process_;
};

// A client of the server that makes windows, and keeps the list of them as a window manager does.
class Windows {
 public:
    explicit Windows(const std::string& display) : connection_(xcb_connect(display.c_str(), nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
    }
    ~Windows() { xcb_disconnect(connection_); }
    Windows(const Windows&) = delete;
    Windows& operator=(const Windows&) = delete;

    xcb_window_t add(std::optional<std::uint32_t> pid, const std::string& instance, const std::string& name) {
        const xcb_window_t window = xcb_generate_id(connection_);
        xcb_create_window(connection_, XCB_COPY_FROM_PARENT, window, root_, 0, 0, 10, 10, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        if (pid) {
            setProperty(window, "_NET_WM_PID", XCB_ATOM_CARDINAL, {*pid});
        }
        if (!name.empty()) {
            setClass(window, instance + '\0' + name + '\0');
        }
        return window;
    }
    void setClass(xcb_window_t window, const std::string& value) {
        xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                            static_cast<std::uint32_t>(value.size()), value.data());
    }
    void setState(xcb_window_t window, const std::vector<std::string>& states) {
        std::vector<std::uint32_t> atoms;
        for (const std::string& state : states) {
            atoms.push_back(atom(state));
        }
        setProperty(window, "_NET_WM_STATE", XCB_ATOM_ATOM, atoms);
    }
    void list(const std::vector<xcb_window_t>& backToFront) {
        setProperty(root_, "_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, backToFront);
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

    fake::LogCapture log;
    XServer server;
    XcbWindowList list{server.display(), 500ms};
    std::unique_ptr<Windows> windows = std::make_unique<Windows>(server.display());
};

TEST_F(XcbWindowListTest, ListsWindowsFromFrontToBack) {
    const auto back = windows->add(11, "xterm", "XTerm");
    const auto middle = windows->add(12, "Navigator", "firefox-esr");
    const auto front = windows->add(13, "chromium (/tmp/profile)", "Chromium");
    windows->list({back, middle, front});
    EXPECT_EQ(owners(), (std::vector<std::string>{"Google Chrome 13", "Firefox 12", "XTerm 11"}));
    windows->list({front, back, middle});
    EXPECT_EQ(owners(), (std::vector<std::string>{"Firefox 12", "XTerm 11", "Google Chrome 13"}));
}

TEST_F(XcbWindowListTest, LeavesOutHiddenWindows) {
    const auto hidden = windows->add(11, "Navigator", "firefox");
    windows->setState(hidden, {"_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_HIDDEN"});
    const auto maximized = windows->add(12, "Navigator", "firefox");
    windows->setState(maximized, {"_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_FULLSCREEN"});
    windows->list({hidden, maximized});
    EXPECT_EQ(owners(), std::vector<std::string>{"Firefox 12"});
}

TEST_F(XcbWindowListTest, LeavesOutWindowsWithoutAProcess) {
    const auto none = windows->add(std::nullopt, "Navigator", "firefox");
    const auto zero = windows->add(0, "Navigator", "firefox");
    windows->list({none, zero, windows->add(12, "Navigator", "firefox")});
    EXPECT_EQ(owners(), std::vector<std::string>{"Firefox 12"});
}

TEST_F(XcbWindowListTest, GivesNoNameToWindowsWithoutOne) {
    const auto unnamed = windows->add(11, "", "");
    const auto cutOff = windows->add(12, "", "");
    windows->setClass(cutOff, "firefox");
    windows->list({unnamed, cutOff});
    EXPECT_EQ(owners(), (std::vector<std::string>{"? 12", "? 11"}));
}

TEST_F(XcbWindowListTest, GivesNamesAsUtf8) {
    windows->list({windows->add(11, "x", "M\xFCller")});
    EXPECT_EQ(owners(), std::vector<std::string>{"M\xC3\xBCller 11"});
}

TEST_F(XcbWindowListTest, PassesOverWindowsThatAreGone) {
    const auto gone = windows->add(11, "Navigator", "firefox");
    windows->list({windows->add(12, "Navigator", "firefox"), gone});
    windows->destroy(gone);
    EXPECT_EQ(owners(), std::vector<std::string>{"Firefox 12"});
}

TEST_F(XcbWindowListTest, SurvivesPropertiesOfAnyOtherShape) {
    const auto window = windows->add(11, "Navigator", "firefox");
    windows->setProperty(window, "_NET_WM_STATE", XCB_ATOM_CARDINAL, {});
    windows->setProperty(window, "_NET_WM_PID", XCB_ATOM_WINDOW, {1, 2, 3});
    windows->list({window, 0, 0xFFFFFFFF});
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(XcbWindowListTest, AnEmptyListIsNoFailure) {
    windows->list({});
    EXPECT_EQ(owners(), std::vector<std::string>{});
}

TEST_F(XcbWindowListTest, FailsWithoutAWindowManager) {
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(log.count("No window manager"), 1U);
    windows->list({windows->add(12, "Navigator", "firefox")});
    EXPECT_EQ(owners(), std::vector<std::string>{"Firefox 12"});
}

TEST_F(XcbWindowListTest, WaitsForAFrozenServerOnlyUntilTheDeadline) {
    windows->list({windows->add(12, "Navigator", "firefox")});
    ASSERT_TRUE(owners());
    server.freeze();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt) << "connecting anew has a deadline, too";
    EXPECT_LT(std::chrono::steady_clock::now() - start, 4s);
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
    server.thaw();
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector<std::string>{"Firefox 12"}; }));
}

TEST_F(XcbWindowListTest, ComesBackWithTheServer) {
    windows->list({windows->add(12, "Navigator", "firefox")});
    ASSERT_TRUE(owners());
    windows.reset();
    server.kill();
    EXPECT_EQ(owners(), std::nullopt);
    EXPECT_EQ(owners(), std::nullopt);
    server.startAgain();
    windows = std::make_unique<Windows>(server.display());
    windows->list({windows->add(13, "Navigator", "firefox")});
    EXPECT_TRUE(fake::WaitFor([&] { return owners() == std::vector<std::string>{"Firefox 13"}; }));
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
    windows->list({windows->add(12, "Navigator", "firefox")});
    {
        const NoMoreThreads noMore;
        EXPECT_EQ(owners(), std::nullopt);
        EXPECT_EQ(owners(), std::nullopt);
    }
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
    EXPECT_EQ(owners(), std::vector<std::string>{"Firefox 12"});
}

TEST(XcbWindowListWithoutServer, FailsAndSaysSoOnce) {
    fake::LogCapture log;
    XcbWindowList list(":99999");
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(list.copyOnScreenWindows(), std::nullopt);
    EXPECT_EQ(log.count("The X server does not answer"), 1U);
}

}  // namespace
