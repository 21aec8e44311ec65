#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "AgentCommands.h"
#include "StartedAgent.h"
#include "buses/Buses.h"
#include "useragent/AgentNames.h"
#include "useragent/PropertiesURL.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
using PlatformData = std::map<std::string, bus::Variant<std::string>>;

// What lets the window take the focus, when this program was given it.
PlatformData ActivationToken() {
    const char* const token = std::getenv("XDG_ACTIVATION_TOKEN");
    return token != nullptr ? PlatformData{{"activation-token", {token}}} : PlatformData();
}

// An agent that is just ending, or was it: the next one takes the request.
bool IsLeaving(const bus::Error& error) {
    for (const char* const name : {bus::error::kFailed, bus::error::kUnknownObject, bus::error::kNoReply,
                                   bus::error::kServiceUnknown, bus::error::kNameHasNoOwner}) {
        if (error.is(name)) {
            return true;
        }
    }
    return false;
}

// Whether an agent took it; throws std::runtime_error when there is one that does not.
bool HandOver(bus::Connection& session, const std::string& url, const Surroundings& surroundings) {
    const auto owner =
        OwnerOf(session, useragent::kApplicationName, bus::Clock::now() + surroundings.patience.bus);
    if (!owner) {
        throw std::runtime_error("The session bus " + Described(owner.error()));
    }
    if (!*owner) {
        return false;
    }
    const auto answer = session.callAndWait(
        session.makeCall(**owner, useragent::kApplicationPath, "org.freedesktop.Application", "Open",
                         std::vector<std::string>{url}, ActivationToken()),
        bus::Clock::now() + surroundings.patience.open);
    if (!answer && !IsLeaving(answer.error())) {
        throw std::runtime_error("The agent " + Described(answer.error()));
    }
    return static_cast<bool>(answer);
}

// As the desktop starts it for such a URL.
void StartAgent(bus::Connection& session, const std::string& url, const Surroundings& surroundings) {
    StartedAgent agent(surroundings.agent, url);
    const auto end = bus::Clock::now() + surroundings.patience.start;
    while (bus::Clock::now() < end) {
        // One that has ended has handed the request over to another, or failed.
        if (const auto code = agent.waitFor(std::chrono::milliseconds(100))) {
            if (*code != 0) {
                throw std::runtime_error("The agent could not be started: it ended with " +
                                         std::to_string(*code));
            }
            return;
        }
        const auto owner = OwnerOf(session, useragent::kApplicationName, end);
        if (owner && *owner) {
            return;
        }
    }
    throw std::runtime_error("The agent was started and is not there yet");
}

}  // namespace

int Open(const Arguments& arguments, const Surroundings& surroundings, Console& console) {
    const std::string path = std::filesystem::absolute(arguments.operands.front()).string();
    const std::string url = useragent::PropertiesURLOf(path);
    Buses buses(surroundings.systemBus, surroundings.sessionBus);
    const auto session = buses.session(bus::Clock::now() + surroundings.patience.bus);
    if (!session) {
        throw std::runtime_error("There is no session bus to ask: " + Words(session.error()));
    }
    if (HandOver(**session, url, surroundings)) {
        return kAllIsWell;
    }
    console.err << "No agent runs in this session, so one is started\n";
    StartAgent(**session, url, surroundings);
    return kAllIsWell;
}

}  // namespace ctl
