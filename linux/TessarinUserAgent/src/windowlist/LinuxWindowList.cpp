#include "windowlist/LinuxWindowList.h"

#include <cstdlib>
#include <utility>

#include "windowlist/AtspiWindowList.h"
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

std::unique_ptr<WindowList> CreateLinuxWindowList(AtspiAccessibility& accessibility,
                                                  std::vector<std::string> browsers, bool xServerAnswers) {
    if (ChooseWindowSource(Environment("WAYLAND_DISPLAY"), xServerAnswers) == WindowSource::xServer) {
        return std::make_unique<XcbWindowList>(Environment("DISPLAY"));
    }
    return std::make_unique<AtspiWindowList>(accessibility.bus(), std::move(browsers));
}

}  // namespace useragent
