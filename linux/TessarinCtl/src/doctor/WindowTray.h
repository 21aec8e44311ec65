#pragma once

#include <optional>

namespace ctl {

// Whether a program shows tray icons on the X server of the environment; nothing when there is no server.
// Waits for the server as long as that takes.
std::optional<bool> HasWindowTray();

}  // namespace ctl
