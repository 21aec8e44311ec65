#pragma once

#include <xcb/xcb.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace useragent {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// One connection to an X server that never waits longer than a deadline. One thread.
class XcbConnection {
 public:
    enum class Atom {
        activeWindow,
        clientListStacking,
        currentDesktop,
        wmDesktop,
        wmState,
        wmStateHidden,
        wmName,
        utf8String,
        count
    };

    // A property of a window, as asked for.
    struct Question {
        xcb_window_t window = XCB_WINDOW_NONE;
        xcb_atom_t property = XCB_ATOM_NONE;
        xcb_atom_t type = XCB_ATOM_ANY;
    };

    // Its content; empty when the window does not have it or is gone.
    struct Property {
        bool isGone = false;      // the window
        std::uint8_t format = 0;  // bits of one item
        std::vector<std::uint8_t> bytes;

        std::vector<std::uint32_t> items() const;  // of 32 bits
        std::optional<std::uint32_t> firstItem() const;
    };

    class Connector {
     public:
        explicit Connector(std::string display);

        // False when the server has not yet said whether it lets anybody in; a later call goes on waiting.
        bool awaitServer(Deadline deadline);

        // Nothing when the server cannot be reached in time; a later call picks up an attempt that is still
        // under way.
        std::unique_ptr<XcbConnection> connect(Deadline deadline);

     private:
        struct Attempt;
        const std::string display_;
        std::shared_ptr<Attempt> attempt_;
    };

    ~XcbConnection();
    XcbConnection(const XcbConnection&) = delete;
    XcbConnection& operator=(const XcbConnection&) = delete;

    xcb_window_t root() const { return root_; }
    xcb_atom_t atom(Atom atom) const { return atoms_[static_cast<std::size_t>(atom)]; }

    // Whether the server can say which process a window belongs to.
    bool tellsProcesses() const { return tellsProcesses_; }

    // The ids of the processes on this machine that have made the windows, as the server sees them, in the
    // order of the windows; 0 for a process of another machine or a window that is gone. Nothing as below.
    // Only when it tells processes.
    std::optional<std::vector<std::int32_t>> askProcesses(const std::vector<xcb_window_t>& windows,
                                                          Deadline deadline);

    // Those of the windows that are mapped, as is all that they are in. Nothing as below.
    std::optional<std::set<xcb_window_t>> askViewable(const std::vector<xcb_window_t>& windows,
                                                      Deadline deadline);

    // The answers in the order of the questions. Nothing when the server does not answer or is gone: the
    // connection is of no more use then.
    std::optional<std::vector<Property>> ask(const std::vector<Question>& questions, Deadline deadline);

    // To be listened at for `changes`.
    int descriptor() const;
    // What it was told since this was asked last. Does not wait. Nothing when the server is gone.
    struct Changes {
        // Another window is active, another desktop is the current one, the list is another one, or a
        // window's state or desktop is, or it was mapped or unmapped.
        bool ofOrder = false;
        bool ofTitles = false;  // of windows that it listens to
    };
    std::optional<Changes> changes();

    // From now on changes of these windows and their properties are told.
    void listenTo(const std::vector<xcb_window_t>& windows);
    // Whether anything was told, before the last answer, since this was asked last.
    bool hasHeard();

 private:
    XcbConnection(xcb_connection_t* connection, xcb_window_t root) : connection_(connection), root_(root) {}

    bool internAtoms(Deadline deadline);
    bool learnWhetherProcessesAreTold(Deadline deadline);
    // The reply to the request, null with an error or when the window is gone. False when nothing came in
    // time.
    bool waitForReply(unsigned sequence, Deadline deadline, std::shared_ptr<void>& reply);
    // Those to the requests in their order. Nothing when one did not come in time.
    std::optional<std::vector<std::shared_ptr<void>>> waitForReplies(const std::vector<unsigned>& sequences,
                                                                     Deadline deadline);

    xcb_connection_t* const connection_;
    const xcb_window_t root_;
    std::array<xcb_atom_t, static_cast<std::size_t>(Atom::count)> atoms_{};
    bool tellsProcesses_ = false;
};

}  // namespace useragent
