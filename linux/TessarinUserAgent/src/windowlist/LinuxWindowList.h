#pragma once

#include <memory>
#include <string>

#include "accessibility/AtspiAccessibility.h"
#include "useragent/WindowList.h"

namespace useragent {

enum class WindowSource { xServer, accessibilityBus };

// From the environment variables WAYLAND_DISPLAY and DISPLAY, empty when not set. Under Wayland the X server
// knows only some of the windows.
WindowSource ChooseWindowSource(const std::string& waylandDisplay, const std::string& display);

// The window list that this session offers.
std::unique_ptr<WindowList> CreateLinuxWindowList(AtspiAccessibility& accessibility);

}  // namespace useragent
