#include "doctor/BrowserLook.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>
#include <variant>

#include "accessibility/AtspiAccessibility.h"
#include "common/ScopedAction.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "useragent/AgentNames.h"
#include "useragent/FindURLElement.h"
#include "useragent/SearchReader.h"
#include "windowlist/AtspiWindowList.h"
#include "windowlist/LinuxWindowList.h"

namespace ctl {

namespace {

using useragent::AXElementRef;
using useragent::AXError;
using useragent::WindowInfo;

// A browser that waits to be asked shows its windows a moment later.
constexpr std::chrono::milliseconds kPause{200};

// Of each browser the window in front.
std::vector<WindowInfo> BrowsersAmong(const std::vector<WindowInfo>& windows) {
    std::vector<WindowInfo> found;
    for (const std::string& name : useragent::BrowserList()) {
        const auto front = std::find_if(windows.begin(), windows.end(),
                                        [&](const WindowInfo& window) { return window.ownerName == name; });
        if (front != windows.end()) {
            found.push_back(*front);
        }
    }
    return found;
}

// Empty when it can be read.
std::string WhyNotRead(useragent::Accessibility& accessibility, std::int32_t pid) {
    const AXElementRef application = accessibility.createApplication(pid);
    useragent::AXValue mainWindow;
    if (!application || accessibility.copyAttributeValue(application, useragent::kMainWindowAttribute,
                                                         mainWindow) != AXError::success) {
        return "it is not on the accessibility bus, or does not answer there";
    }
    const auto* const window = std::get_if<AXElementRef>(&mainWindow);
    useragent::SearchReader search(accessibility, &cmn::bus::Clock::now, accessibility.searchDeadline());
    if (window != nullptr && *window && useragent::FindURLElement(search, *window, 0)) {
        return {};
    }
    return search.expired() ? "it answers too slowly"
                            : "its window shows no address field on the accessibility bus";
}

}  // namespace

Browsers LookAtBrowsers(useragent::Accessibility& accessibility, useragent::WindowList& windows,
                        cmn::bus::Deadline deadline) {
    for (;;) {
        const auto all = windows.copyOnScreenWindows();
        if (!all) {
            return std::nullopt;
        }
        const std::vector<WindowInfo> browsers = BrowsersAmong(*all);
        accessibility.prepare(browsers);
        std::vector<BrowserState> seen;
        for (const WindowInfo& browser : browsers) {
            std::string why = WhyNotRead(accessibility, browser.ownerPid);
            seen.push_back({browser.ownerName.value_or(""), browser.ownerPid, why.empty(), std::move(why)});
        }
        const bool allAreRead =
            std::all_of(seen.begin(), seen.end(), [](const BrowserState& one) { return one.isRead; });
        if (allAreRead || cmn::bus::Clock::now() + 3 * kPause >= deadline) {
            return seen;
        }
        std::this_thread::sleep_for(kPause);
    }
}

Browsers LookAtBrowsers(cmn::bus::Deadline deadline) {
    const auto loop = std::make_shared<cmn::bus::Loop>();
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>(cmn::LinuxDispatch::kDefaultThreads, loop);
    useragent::AtspiAccessibility accessibility(dispatch, useragent::SettingsOfThisSession(), loop);
    const cmn::ScopedAction stop([&] {
        dispatch->stop();
        loop->stop();
    });
    const char* const display = std::getenv("DISPLAY");
    if (const auto windows = useragent::CreateXWindowList(display != nullptr && *display != '\0')) {
        if (Browsers seen = LookAtBrowsers(accessibility, *windows, deadline)) {
            return seen;
        }
    }
    useragent::AtspiWindowList frames(accessibility.bus(), useragent::BrowserList());
    return LookAtBrowsers(accessibility, frames, deadline);
}

}  // namespace ctl
