#include "accessibility/AccessibilityPrompt.h"

#include <fmt/format.h>

#include <map>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "accessibility/AtspiQueries.h"
#include "common/log.h"

namespace useragent {
namespace {

using cmn::bus::Message;
using cmn::bus::Query;
using cmn::bus::Result;

constexpr const char* kNotifications = "org.freedesktop.Notifications";
constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
constexpr const char* kSwitchOnAction = "switch-on";

// Services that have to be started first take their time.
constexpr std::chrono::seconds kServiceTimeout{25};

void LogRemedy() {
    TLOG_WARN(
        "Accessibility is off and nobody could be asked to switch it on. It can be done with: busctl --user "
        "set-property org.a11y.Bus /org/a11y/bus org.a11y.Status IsEnabled b true");
}

bool WriteNotification(Message& call) {
    using namespace std::string_literals;
    using Hints = std::map<std::string, std::variant<std::monostate, std::uint8_t>>;
    constexpr std::uint8_t kNormalUrgency = 1;
    constexpr std::uint32_t kReplacesNone = 0;
    constexpr std::int32_t kNeverExpires = 0;
    return call.append("Tessarin User Agent"s, kReplacesNone, "preferences-desktop-accessibility"s,
                       "Accessibility is switched off"s,
                       "Tessarin needs it to see which addresses the web browsers visit."s,
                       std::vector<std::string>{kSwitchOnAction, "Switch on"},
                       Hints{{"urgency", kNormalUrgency}}, kNeverExpires);
}

}  // namespace

Query<AccessibilityPrompt::Shown> AccessibilityPrompt::Notification() {
    return {kNotifications,
            kNotificationsPath,
            kNotifications,
            "Notify",
            &WriteNotification,
            [](const Message& answer) -> Result<Shown> {
                const auto number = answer.readOne<std::uint32_t>();
                return number ? Result<Shown>({*number, std::string(answer.sender())}) : number.error();
            }};
}

template <typename T>
void AccessibilityPrompt::ask(const Query<T>& query, void (AccessibilityPrompt::*next)(const Result<T>&)) {
    cmn::bus::Ask<T>(*sessionBus_, query, cmn::bus::Clock::now() + kServiceTimeout,
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
    } else if (!*isEnabled) {
        ask(Notification(), &AccessibilityPrompt::shown);
    }
}

void AccessibilityPrompt::shown(const Result<Shown>& notification) {
    if (!notification) {
        LogRemedy();
        return;
    }
    notification_ = notification->number;
    // Only whoever shows the notification can say what became of it.
    actions_ = sessionBus_->subscribe(
        fmt::format("type='signal',sender='{}',path='{}',interface='{}',member='ActionInvoked'",
                    notification->service, kNotificationsPath, kNotifications),
        [weak = weak_from_this()](const Message& signal) {
            if (const auto self = weak.lock()) {
                self->actionInvoked(signal);
            }
        });
}

void AccessibilityPrompt::actionInvoked(const Message& signal) {
    if (const auto action = signal.read<std::uint32_t, std::string>();
        action && *action == std::tuple(notification_, kSwitchOnAction)) {
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
