#pragma once

#include <memory>
#include <utility>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiQueries.h"
#include "notifications/DesktopNotification.h"
#include "useragent/ToldOnce.h"

namespace useragent {

// Asks the user, once, to switch accessibility on for the session: a desktop notification with a button that
// does it. Made and asked on the main thread; goes on in the bus's.
class AccessibilityPrompt : public std::enable_shared_from_this<AccessibilityPrompt> {
 public:
    AccessibilityPrompt(AccessibilityBus& bus, ToldOnce told) : bus_(bus), told_(std::move(told)) {}

    // Waits at most for the session bus. Nothing is shown when accessibility turns out to be on, and nothing
    // to a user who was told before.
    void ask();

 private:
    // Asks the session bus; `next` gets the answer, in the bus's thread, unless this object is gone by then.
    template <typename T>
    void ask(const cmn::bus::Query<T>& query, void (AccessibilityPrompt::*next)(const cmn::bus::Result<T>&));

    void heardWhetherEnabled(const cmn::bus::Result<bool>& isEnabled);
    void shown(const cmn::bus::Result<ShownNotification>& notification);
    void actionInvoked(const cmn::bus::Message& signal);
    void switchedOn(const cmn::bus::Result<atspi::Done>& done);

    AccessibilityBus& bus_;
    const ToldOnce told_;
    bool asked_ = false;
    std::shared_ptr<cmn::bus::Connection> sessionBus_;
    ShownNotification notification_;
    std::shared_ptr<cmn::bus::Subscription> actions_;
};

}  // namespace useragent
