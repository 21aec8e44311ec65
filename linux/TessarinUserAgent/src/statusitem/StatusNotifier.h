#pragma once

namespace useragent {

// The service that tells panels of status items, and items of panels.
inline constexpr const char* kNotifierWatcher = "org.kde.StatusNotifierWatcher";
inline constexpr const char* kNotifierWatcherPath = "/StatusNotifierWatcher";
// Its property: whether a panel shows them.
inline constexpr const char* kHasNotifierHost = "IsStatusNotifierHostRegistered";

}  // namespace useragent
