#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "accessibility/AtspiSettings.h"
#include "accessibility/Session.h"
#include "linux_bus/Connection.h"
#include "linux_bus/Loop.h"
#include "usercommon/Dispatch.h"

namespace useragent {

// Finds the desktop's accessibility bus, connects to it and notices when it goes away, comes back or is
// switched off and on. Any thread; of several callers that find it unusable one tries, the others do not
// wait.
class AccessibilityBus : public std::enable_shared_from_this<AccessibilityBus> {
 public:
    AccessibilityBus(std::shared_ptr<cmn::Dispatch> dispatch, std::shared_ptr<cmn::bus::Loop> loop,
                     AtspiSettings settings);

    // The bus as last seen, without asking; looks for it when it was not usable the last time, but not too
    // often.
    std::shared_ptr<Session> session(cmn::bus::Deadline deadline);

    // Looks anew. Nothing when the desktop has none, it does not answer, or accessibility is switched off.
    // What is to be done with a bus that was usable the last time is done while the session is asked.
    using Use = std::function<void(Session&)>;
    std::shared_ptr<Session> check(cmn::bus::Deadline deadline, const Use& meanwhile = {});

    // The two steps of a polling cycle, of which one looks anew; the first may be left out.
    std::shared_ptr<Session> beginCycle(cmn::bus::Deadline deadline);
    void endCycle(cmn::bus::Deadline deadline, const Use& use);

    // The desktop's session bus; nothing when it cannot be had.
    std::shared_ptr<cmn::bus::Connection> sessionBus(cmn::bus::Deadline deadline);

    // Other windows are on screen, or in another order. Does not wait.
    void screenChanged();
    // Some of them have other titles. Does not wait.
    void screenRetitled();

    const std::shared_ptr<cmn::Dispatch>& dispatch() const { return surroundings_.dispatch; }
    cmn::bus::Deadline deadline() const { return cmn::bus::Clock::now() + settings_.callDeadline; }

 private:
    using Connected = cmn::bus::Result<std::shared_ptr<cmn::bus::Connection>>;
    enum class Verdict { unknown, usable, switchedOff, unreachable };
    struct Answer {
        std::optional<bool> switchedOn;
        std::string address;
        std::string failure;
    };

    Answer askSession(cmn::bus::Deadline deadline, const Use& meanwhile);
    Connected connect(const std::string& address, cmn::bus::Deadline deadline);
    void look(cmn::bus::Deadline deadline, const Use& meanwhile);
    void lookEarlyIfOthersInFront();
    // With the mutex held.
    void conclude(Verdict verdict, const std::string& reason);
    void replace(std::shared_ptr<Session> session);
    std::shared_ptr<Session> usable() const;

    const AtspiSettings settings_;
    const Session::Surroundings surroundings_;

    mutable std::mutex mutex_;  // guards what follows
    std::shared_ptr<cmn::bus::Connection> sessionBus_;
    std::shared_ptr<Session> session_;
    std::string address_;  // of the bus of that session, as asked for
    std::optional<bool> switchedOn_;
    Verdict verdict_ = Verdict::unknown;
    cmn::bus::Deadline lastLook_{};
    bool looking_ = false;
    bool isCheckedForCycle_ = false;
    bool isFrontAsked_ = false;
};

}  // namespace useragent
