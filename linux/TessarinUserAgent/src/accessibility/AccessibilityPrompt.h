#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiQueries.h"

namespace useragent {

// Asks the user, once, to switch accessibility on for the session: a desktop notification with a button that
// does it. Made and asked on the main thread; goes on in the bus's.
class AccessibilityPrompt : public std::enable_shared_from_this<AccessibilityPrompt> {
 public:
    explicit AccessibilityPrompt(AccessibilityBus& bus) : bus_(bus) {}

    // Waits at most for the session bus. Nothing is shown when accessibility turns out to be on.
    void ask();

 private:
    struct Shown {
        std::uint32_t number = 0;
        std::string service;  // unique name of who shows it
    };
    static cmn::bus::Query<Shown> Notification();

    // Asks the session bus; `next` gets the answer, in the bus's thread, unless this object is gone by then.
    template <typename T>
    void ask(const cmn::bus::Query<T>& query, void (AccessibilityPrompt::*next)(const cmn::bus::Result<T>&));

    void heardWhetherEnabled(const cmn::bus::Result<bool>& isEnabled);
    void shown(const cmn::bus::Result<Shown>& notification);
    void actionInvoked(const cmn::bus::Message& signal);
    void switchedOn(const cmn::bus::Result<atspi::Done>& done);

    AccessibilityBus& bus_;
    bool asked_ = false;
    std::shared_ptr<cmn::bus::Connection> sessionBus_;
    std::uint32_t notification_ = 0;
    std::shared_ptr<cmn::bus::Subscription> actions_;
};

}  // namespace useragent
