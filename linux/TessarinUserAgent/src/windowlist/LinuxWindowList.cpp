#include "windowlist/LinuxWindowList.h"

#include <cstdlib>

#include "windowlist/AtspiWindowList.h"
#include "windowlist/XcbWindowList.h"

namespace useragent {
namespace {

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

}  // namespace

WindowSource ChooseWindowSource(const std::string& waylandDisplay, const std::string& display) {
    return waylandDisplay.empty() && !display.empty() ? WindowSource::xServer
                                                      : WindowSource::accessibilityBus;
}

std::unique_ptr<WindowList> CreateLinuxWindowList(AtspiAccessibility& accessibility) {
    const std::string display = Environment("DISPLAY");
    if (ChooseWindowSource(Environment("WAYLAND_DISPLAY"), display) == WindowSource::xServer) {
        return std::make_unique<XcbWindowList>(display);
    }
    return std::make_unique<AtspiWindowList>(accessibility.bus());
}

}  // namespace useragent
