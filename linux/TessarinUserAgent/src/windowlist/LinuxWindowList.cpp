#include "windowlist/LinuxWindowList.h"

#include <cstdlib>

namespace useragent {
namespace {

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

WindowSource ChooseWindowSource(const std::string& waylandDisplay, bool xServerAnswers) {
    return waylandDisplay.empty() && xServerAnswers ? WindowSource::xServer : WindowSource::accessibilityBus;
}

std::shared_ptr<XcbWindowList> CreateXWindowList(bool xServerAnswers) {
    return ChooseWindowSource(Environment("WAYLAND_DISPLAY"), xServerAnswers) == WindowSource::xServer
               ? std::make_shared<XcbWindowList>(Environment("DISPLAY"))
               : nullptr;
}

OnScreen WindowsOf(std::int32_t pid, WindowList& windows) {
    OnScreen found;
    bool isFirst = true;
    for (const WindowInfo& window : windows.copyOnScreenWindows().value_or(std::vector<WindowInfo>())) {
        if (window.ownerPid == pid) {
            found.titles.push_back(window.title.value_or(""));
            found.isInFront |= isFirst;
        }
        isFirst = false;
    }
    return found;
}

std::optional<std::vector<WindowInfo>> PolledWindowList::copyOnScreenWindows() {
    auto windows = windows_->copyOnScreenWindows();
    if (windows) {
        const std::lock_guard lock(mutex_);
        polled_ = InFront(*windows);
    }
    return windows;
}

bool PolledWindowList::isOutdated() {
    const auto windows = windows_->copyOnScreenWindows();
    const std::lock_guard lock(mutex_);
    return windows && InFront(*windows) != polled_;
}

PolledWindowList::FrontProcesses PolledWindowList::InFront(const std::vector<WindowInfo>& windows) {
    FrontProcesses found;
    for (const WindowInfo& window : windows) {
        found.emplace(window.ownerName.value_or(""), window.ownerPid);
    }
    return found;
}

}  // namespace useragent
