#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/Applications.h"
#include "accessibility/EventRegistrations.h"
#include "accessibility/SilentApplications.h"
#include "linux_bus/Connection.h"
#include "linux_bus/Loop.h"
#include "usercommon/Dispatch.h"

namespace useragent {

class Subscription;

// The subscriptions that are open. Any thread.
class Subscriptions {
 public:
    explicit Subscriptions(std::shared_ptr<cmn::bus::Loop> loop) : loop_(std::move(loop)) {}

    void add(const std::shared_ptr<Subscription>& subscription);

    // Calls `what` for each of them, in the loop's thread.
    void tell(std::function<void(Subscription&)> what);

    // Tells them, and all that are added later, that the bus is lost.
    void end();

 private:
    const std::shared_ptr<cmn::bus::Loop> loop_;

    std::mutex mutex_;  // guards what follows
    std::vector<std::weak_ptr<Subscription>> subscriptions_;
    bool ended_ = false;
};

// Everything that means something in one uninterrupted stretch of the accessibility bus; the next stretch is
// another object. Who outlives it holds it weakly. Any thread.
class Session {
 public:
    struct Surroundings {
        std::shared_ptr<cmn::Dispatch> dispatch;
        std::shared_ptr<cmn::bus::Loop> loop;  // in whose thread the subscriptions live
        std::chrono::milliseconds callDeadline;
    };

    Session(Surroundings where, std::shared_ptr<cmn::bus::Connection> connection);

    // One look at which applications answer at all, and whether the registry is still the same.
    void callTheRoll(const std::vector<std::int32_t>& pids, cmn::bus::Deadline deadline);

    // Whether an application can be asked for showing children in one call, until it turned out not to.
    bool canSelect(const std::string& busName) const;
    void cannotSelect(const std::string& busName);

    cmn::bus::Deadline deadline() const { return cmn::bus::Clock::now() + surroundings.callDeadline; }

    const Surroundings surroundings;
    const std::shared_ptr<cmn::bus::Connection> connection;
    const std::shared_ptr<Subscriptions> subscriptions;
    const std::shared_ptr<SilentApplications> silent;
    Applications applications;
    EventRegistrations events;

 private:
    mutable std::mutex mutex_;  // guards withoutSelection_
    std::set<std::string> withoutSelection_;
};

}  // namespace useragent
