#include "notifications/DesktopNotification.h"

#include <fmt/format.h>

#include <map>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

namespace useragent {
namespace {

using cmn::bus::Message;
using cmn::bus::Query;
using cmn::bus::Result;

constexpr const char* kNotifications = "org.freedesktop.Notifications";
constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
constexpr const char* kButton = "mend";

bool Write(Message& call, const Notice& notice, const std::string& icon) {
    using Hints = std::map<std::string, std::variant<std::monostate, std::uint8_t>>;
    constexpr std::uint8_t kNormalUrgency = 1;
    constexpr std::uint32_t kReplacesNone = 0;
    constexpr std::int32_t kNeverExpires = 0;
    return call.append(std::string("Tessarin User Agent"), kReplacesNone, icon, notice.title, notice.text,
                       std::vector<std::string>{kButton, notice.button}, Hints{{"urgency", kNormalUrgency}},
                       kNeverExpires);
}

}  // namespace

Query<ShownNotification> ShowNotification(Notice notice, std::string icon) {
    return {kNotifications,
            kNotificationsPath,
            kNotifications,
            "Notify",
            [notice = std::move(notice), icon = std::move(icon)](Message& call) {
                return Write(call, notice, icon);
            },
            [](const Message& answer) -> Result<ShownNotification> {
                const auto number = answer.readOne<std::uint32_t>();
                return number ? Result<ShownNotification>({*number, std::string(answer.sender())})
                              : number.error();
            }};
}

std::string ButtonsOf(const ShownNotification& shown) {
    return fmt::format("type='signal',sender='{}',path='{}',interface='{}',member='ActionInvoked'",
                       shown.service, kNotificationsPath, kNotifications);
}

bool IsButtonPressed(const Message& signal, const ShownNotification& shown) {
    const auto action = signal.read<std::uint32_t, std::string>();
    return action && *action == std::tuple(shown.number, kButton);
}

}  // namespace useragent
