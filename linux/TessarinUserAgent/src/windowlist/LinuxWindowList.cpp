#include "windowlist/LinuxWindowList.h"

#include <algorithm>
#include <cstdlib>

#include "windowlist/XcbWindowList.h"

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

std::shared_ptr<WindowList> CreateXWindowList(bool xServerAnswers) {
    return ChooseWindowSource(Environment("WAYLAND_DISPLAY"), xServerAnswers) == WindowSource::xServer
               ? std::make_shared<XcbWindowList>(Environment("DISPLAY"))
               : nullptr;
}

std::string FrontTitleIn(WindowList& windows, std::int32_t pid) {
    const auto all = windows.copyOnScreenWindows();
    if (!all) {
        return {};
    }
    const auto front = std::find_if(all->begin(), all->end(),
                                    [pid](const WindowInfo& window) { return window.ownerPid == pid; });
    return front != all->end() ? front->title.value_or("") : "";
}

}  // namespace useragent
