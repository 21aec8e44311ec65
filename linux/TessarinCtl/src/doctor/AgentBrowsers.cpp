#include "doctor/AgentBrowsers.h"

#include <exception>
#include <string>

#include "useragent/AgentNames.h"
#include "useragent/AgentStatus.h"

namespace ctl {

Browsers BrowsersOfAgent(Buses& buses, cmn::bus::Deadline deadline) {
    const auto session = buses.session(deadline);
    if (!session) {
        return std::nullopt;
    }
    const auto json = AskService<std::string>(
        **session, useragent::kApplicationName, useragent::kApplicationPath, useragent::kStatusInterface,
        useragent::kStatusMethod, deadline, cmn::bus::kUsuallyRead, false);
    if (!json) {
        return std::nullopt;
    }
    Browsers browsers;
    try {
        const auto status = cmn::proto::JsonToObjectImpl<useragent::AgentStatus>(*json);
        browsers.emplace();
        for (const useragent::AgentStatus::Browser& browser : status.browsers) {
            const bool isRead = browser.readForSeconds.has_value();
            browsers->push_back(
                {browser.name, browser.pid, isRead, isRead ? "" : "the agent's log says why"});
        }
    } catch (const std::exception&) {
        browsers.reset();  // of an agent of another version
    }
    return browsers;
}

}  // namespace ctl
