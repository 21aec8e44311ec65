#include "interface/ToolkitPlatform.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <string_view>
#include <vector>

namespace useragent {
namespace {

constexpr std::string_view kX11 = "xcb";
constexpr std::string_view kWayland = "wayland";
constexpr std::string_view kShowsNothing = "offscreen";

// The entries look like "xcb", "wayland-egl" and "offscreen:fontpath=...".
std::vector<std::string> Entries(const std::string& platforms) {
    std::vector<std::string> entries;
    boost::algorithm::split(entries, platforms, boost::algorithm::is_any_of(";"));
    std::erase(entries, std::string());
    return entries;
}

bool Names(const std::string& platforms, std::string_view platform) {
    for (const std::string& entry : Entries(platforms)) {
        if (entry.starts_with(platform)) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string PlatformsToTry(const std::string& wanted, const Displays& displays) {
    std::string platforms;
    for (const std::string& entry : Entries(wanted.empty() ? "wayland;xcb" : wanted)) {
        const bool isNotThere =
            (entry.starts_with(kX11) && !displays.x11) || (entry.starts_with(kWayland) && !displays.wayland);
        if (!isNotThere) {
            platforms += entry + ";";
        }
    }
    return platforms.append(kShowsNothing);
}

std::string WhyNothingIsShown(const std::string& wanted, const std::string& tried, const std::string& taken) {
    if (taken != kShowsNothing || Names(wanted, kShowsNothing)) {
        return {};
    }
    if (Names(tried, kWayland)) {
        return "The agent shows no window: Qt has no plug-in for Wayland that it can load. Install the "
               "package qt6-wayland and start the agent again";
    }
    if (Names(tried, kX11)) {
        return "The agent shows no window: Qt cannot load its plug-in for X11. QT_DEBUG_PLUGINS=1 in the "
               "agent's environment shows which library is missing";
    }
    return "The agent shows no window: no display answers. WAYLAND_DISPLAY or DISPLAY in the agent's "
           "environment has to name the one of the session, which has to let the agent in";
}

}  // namespace useragent
