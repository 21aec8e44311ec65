#include "windowlist/AtspiWindowList.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace useragent {

using cmn::bus::Deadline;
using cmn::bus::HalfWayTo;

std::optional<std::vector<WindowInfo>> AtspiWindowList::copyOnScreenWindows() {
    const std::shared_ptr<AccessibilityBus> bus = bus_.lock();
    if (!bus) {
        return std::nullopt;
    }
    const Deadline deadline = bus->deadline();
    const std::shared_ptr<Session> session = bus->beginCycle(HalfWayTo(deadline));
    if (!session) {
        return std::nullopt;
    }
    if (session_.lock() != session) {
        session_ = session;
        records_.clear();  // bus names begin anew
    }
    const auto names = AtspiSurvey(*session, records_, browsers_, ++looks_).take(deadline);
    if (!names) {
        return std::nullopt;
    }
    std::vector<const AtspiApplicationRecord*> browsers;
    for (const std::string& name : *names) {
        browsers.push_back(&records_.at(name));
    }
    std::stable_sort(browsers.begin(), browsers.end(), [](const auto* left, const auto* right) {
        return left->lastActive > right->lastActive;
    });
    std::vector<WindowInfo> windows;
    for (const AtspiApplicationRecord* const browser : browsers) {
        std::fill_n(std::back_inserter(windows), browser->windows(), WindowInfo{browser->name, browser->pid});
    }
    return windows;
}

}  // namespace useragent
