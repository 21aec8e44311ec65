#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/Applications.h"
#include "accessibility/AtspiSettings.h"
#include "accessibility/EventRegistrations.h"
#include "accessibility/SilentApplications.h"
#include "linux_bus/Connection.h"
#include "linux_bus/Loop.h"
#include "useragent/Accessibility.h"
#include "usercommon/Dispatch.h"

namespace useragent {

class ApplicationWatch;
class Session;

// The applications that are watched, by bus name. Any thread.
class Watches {
 public:
    explicit Watches(std::shared_ptr<cmn::bus::Loop> loop) : loop_(std::move(loop)) {}

    // The watch of that application, made when there was none.
    std::shared_ptr<ApplicationWatch> of(const std::shared_ptr<Session>& session, std::int32_t pid,
                                         const std::string& busName);

    // Tells the application's watch, if there is one, that the bus name has died, and forgets it.
    void end(const std::string& busName);

    // Calls `what` for that application, or for each of them, in the loop's thread.
    void tell(const std::string& busName, void (ApplicationWatch::*what)());
    void tellAll(void (ApplicationWatch::*what)());

    // Tells them, and all that are added later, that the bus is lost.
    void end();

 private:
    const std::shared_ptr<cmn::bus::Loop> loop_;

    std::mutex mutex_;  // guards what follows
    std::map<std::string, std::shared_ptr<ApplicationWatch>> watches_;
    bool ended_ = false;
};

// Everything that means something in one uninterrupted stretch of the accessibility bus; the next stretch is
// another object. Who outlives it holds it weakly. Any thread.
class Session : public std::enable_shared_from_this<Session> {
 public:
    struct Surroundings {
        std::shared_ptr<cmn::Dispatch> dispatch;
        std::shared_ptr<cmn::bus::Loop> loop;  // in whose thread signals arrive
        std::chrono::milliseconds callDeadline;
        Screen screen;
        std::shared_ptr<EarlyLooks> earlyLooks;
    };

    Session(Surroundings where, std::shared_ptr<cmn::bus::Connection> connection);

    // One look at whether what is known of these browsers still holds, and who answers at all. Waits for all
    // of them; the polling thread.
    void look(const std::vector<WindowInfo>& browsers, cmn::bus::Deadline deadline);

    // The watch of the process's application; null when the process has none.
    std::shared_ptr<ApplicationWatch> watch(std::int32_t pid, cmn::bus::Deadline deadline);
    AXError mainWindow(std::int32_t pid, cmn::bus::Deadline deadline, AXValue& window);

    // Something is to be had now that a polling cycle did not get. Does not wait.
    void lookEarly(std::chrono::milliseconds delay = {});

    // Whether an application can be asked for showing children in one call, until it turned out not to.
    bool canSelect(const std::string& busName) const;
    void cannotSelect(const std::string& busName);

    // The frames of an application, by path, as the window list has found them in this polling cycle.
    struct FramesOnScreen {
        std::vector<std::string> active;
        std::optional<std::vector<std::string>> showing;  // nothing when it was enough to ask for the active
    };
    void noteFrames(const std::string& busName, FramesOnScreen frames);
    std::optional<FramesOnScreen> takeFrames(const std::string& busName);

    cmn::bus::Deadline deadline() const { return cmn::bus::Clock::now() + surroundings.callDeadline; }

    const Surroundings surroundings;
    const std::shared_ptr<cmn::bus::Connection> connection;
    const std::shared_ptr<Watches> watches;
    const std::shared_ptr<SilentApplications> silent;
    Applications applications;
    const std::shared_ptr<EventRegistrations> events;

 private:
    std::shared_ptr<cmn::bus::Subscription> registrySignals_;
    std::shared_ptr<cmn::bus::Subscription> endedNames_;

    mutable std::mutex mutex_;  // guards what follows
    std::set<std::string> withoutSelection_;
    std::map<std::int32_t, int> failedReads_;       // by process, since it could be read last
    std::map<std::string, FramesOnScreen> frames_;  // by bus name
};

}  // namespace useragent
