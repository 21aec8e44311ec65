#pragma once

#include <memory>
#include <string>
#include <vector>

#include "accessibility/AtspiAccessibility.h"
#include "useragent/WindowList.h"

namespace useragent {

enum class WindowSource { xServer, accessibilityBus };

// `waylandDisplay` as in the environment, empty when not set: under Wayland the X server knows only some of
// the windows.
WindowSource ChooseWindowSource(const std::string& waylandDisplay, bool xServerAnswers);

// The window list that this session offers; `browsers` are the product's names of those that count.
std::unique_ptr<WindowList> CreateLinuxWindowList(AtspiAccessibility& accessibility,
                                                  std::vector<std::string> browsers, bool xServerAnswers);

}  // namespace useragent
