#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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

// The list that the polling cycles read, and whether what they saw last still holds. Any thread.
class PolledWindowList final : public WindowList {
 public:
    explicit PolledWindowList(std::shared_ptr<WindowList> windows) : windows_(std::move(windows)) {}

    std::optional<std::vector<WindowInfo>> copyOnScreenWindows() override;

    // Whether a program's front-most window is one of another process by now, or a program came or went.
    bool isOutdated();

 private:
    using FrontProcesses = std::map<std::string, std::int32_t>;  // by the program's name
    static FrontProcesses InFront(const std::vector<WindowInfo>& windows);

    const std::shared_ptr<WindowList> windows_;

    std::mutex mutex_;  // guards what follows
    FrontProcesses polled_;
};

}  // namespace useragent
