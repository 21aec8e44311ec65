#include "accessibility/AccessibilityPrompt.h"

#include <utility>

#include "accessibility/AtspiQueries.h"
#include "common/log.h"

namespace useragent {
namespace {

using cmn::bus::Message;
using cmn::bus::Query;
using cmn::bus::Result;

constexpr const char* kPermission = "accessibility";
constexpr const char* kRemedy =
    "busctl --user set-property org.a11y.Bus /org/a11y/bus org.a11y.Status IsEnabled b true";

void LogRemedy() {
    TLOG_WARN("Accessibility is off and nobody could be asked to switch it on. It can be done with: {}",
              kRemedy);
}

Query<ShownNotification> Notification() {
    return ShowNotification({"Accessibility is switched off",
                             "Tessarin needs it to see which addresses the web browsers visit.", "Switch on"},
                            "preferences-desktop-accessibility");
}

}  // namespace

template <typename T>
void AccessibilityPrompt::ask(const Query<T>& query, void (AccessibilityPrompt::*next)(const Result<T>&)) {
    cmn::bus::Ask<T>(*sessionBus_, query, cmn::bus::Clock::now() + kNotificationTimeout,
                     [weak = weak_from_this(), next](const Result<T>& answer) {
                         if (const auto self = weak.lock()) {
                             (self.get()->*next)(answer);
                         }
                     });
}

void AccessibilityPrompt::ask() {
    if (std::exchange(asked_, true)) {
        return;
    }
    sessionBus_ = bus_.sessionBus(bus_.deadline());
    if (!sessionBus_) {
        LogRemedy();
        return;
    }
    // The session may have been too slow to answer the question that led here.
    ask(atspi::IsEnabled(), &AccessibilityPrompt::heardWhetherEnabled);
}

void AccessibilityPrompt::heardWhetherEnabled(const Result<bool>& isEnabled) {
    if (!isEnabled) {
        TLOG_WARN("This session has no accessibility: {}", isEnabled.error().message);
    } else if (!*isEnabled && told_.wasTold(kPermission)) {
        TLOG_WARN("Accessibility is off, as the user was told before. It can be switched on with: {}",
                  kRemedy);
    } else if (!*isEnabled) {
        ask(Notification(), &AccessibilityPrompt::shown);
    }
}

void AccessibilityPrompt::shown(const Result<ShownNotification>& notification) {
    if (!notification) {
        LogRemedy();
        return;
    }
    told_.setToldNoThrow(kPermission);
    notification_ = *notification;
    actions_ =
        sessionBus_->subscribe(ButtonsOf(notification_), [weak = weak_from_this()](const Message& signal) {
            if (const auto self = weak.lock()) {
                self->actionInvoked(signal);
            }
        });
}

void AccessibilityPrompt::actionInvoked(const Message& signal) {
    if (IsButtonPressed(signal, notification_)) {
        ask(atspi::Enable(), &AccessibilityPrompt::switchedOn);
    }
}

void AccessibilityPrompt::switchedOn(const Result<atspi::Done>& done) {
    if (done) {
        TLOG_INFO("Accessibility was switched on at the user's wish");
    } else {
        TLOG_WARN("Accessibility could not be switched on: {}", done.error().message);
    }
}

}  // namespace useragent
