#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "useragent/WindowList.h"
#include "windowlist/XcbWindowList.h"

namespace useragent {

enum class WindowSource { xServer, accessibilityBus };

// `waylandDisplay` as in the environment, empty when not set: under Wayland the X server knows only some of
// the windows.
WindowSource ChooseWindowSource(const std::string& waylandDisplay, bool xServerAnswers);

// The X server's window list; null where it is not the one to ask. Any thread.
std::shared_ptr<XcbWindowList> CreateXWindowList(bool xServerAnswers);

// The titles of the process's windows in such a list, front to back; nothing when it cannot be had.
std::vector<std::string> TitlesIn(WindowList& windows, std::int32_t pid);

}  // namespace useragent
