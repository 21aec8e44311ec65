#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "linux_bus/Batch.h"
#include "useragent/PermissionNotices.h"

namespace useragent {

// A service that has to be started first takes its time.
inline constexpr std::chrono::seconds kNotificationTimeout{25};

// A notification as the service knows it.
struct ShownNotification {
    std::uint32_t number = 0;
    std::string service;  // unique name of who shows it
};

// Shows a notification with one button that stays until the user closes it. `icon` is a name of the icon
// theme.
cmn::bus::Query<ShownNotification> ShowNotification(Notice notice, std::string icon);

// A match rule for the signals of the buttons of that service's notifications; only whoever shows a
// notification can say what became of it.
std::string ButtonsOf(const ShownNotification& shown);
// Whether such a signal says that the button of this notification was pressed.
bool IsButtonPressed(const cmn::bus::Message& signal, const ShownNotification& shown);

}  // namespace useragent
