#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "accessibility/AtspiSettings.h"
#include "useragent/WindowList.h"
#include "windowlist/XcbWindowList.h"

namespace useragent {

enum class WindowSource { xServer, accessibilityBus };

// `waylandDisplay` as in the environment, empty when not set: under Wayland the X server knows only some of
// the windows.
WindowSource ChooseWindowSource(const std::string& waylandDisplay, bool xServerAnswers);

// The X server's window list; null where it is not the one to ask. Any thread.
std::shared_ptr<XcbWindowList> CreateXWindowList(bool xServerAnswers);

// The process's windows in such a list; nothing when it cannot be had.
OnScreen WindowsOf(std::int32_t pid, WindowList& windows);

// The process of each program's front-most window; empty when the list cannot be had.
std::map<std::string, std::int32_t> FrontProcesses(WindowList& windows);

}  // namespace useragent
