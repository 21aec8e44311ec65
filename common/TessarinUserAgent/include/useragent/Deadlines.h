#pragma once

#include <chrono>

namespace useragent {

// How long a browser may keep the agent waiting.
inline constexpr std::chrono::milliseconds kBrowserCallDeadline{250};
inline constexpr std::chrono::milliseconds kURLFieldSearchDeadline{1000};

// Pause at the end of each polling cycle.
inline constexpr std::chrono::seconds kPollingPause{5};

}  // namespace useragent
