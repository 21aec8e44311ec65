#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "buses/Buses.h"
#include "permissions/DesktopSession.h"

namespace ctl {

// A browser that is running, and what keeps the agent from reading it.
struct BrowserState {
    std::string name;  // as the product calls it
    std::int32_t pid = 0;
    bool isRead = false;
    std::string why = {};  // it is not; without the last full stop
};
using Browsers = std::optional<std::vector<BrowserState>>;  // nothing: it cannot be told which there are

// What the checks look at: of this process and machine, or of a test. Used by one thread after the other.
struct Machine {
    std::filesystem::path root = "/";  // in front of the system's paths
    useragent::EnvironmentLookup environment;
    useragent::DesktopSession desktop;
    std::shared_ptr<Buses> buses;
    std::filesystem::path bundle;                  // of the agent
    std::filesystem::path userLogs;                // folder of this user's logs; empty when there is none
    std::vector<std::filesystem::path> qtPlugins;  // where Qt looks for them
    uid_t serviceUser = 0;                         // who is to own the services
    std::function<std::chrono::system_clock::time_point()> now;
    // Bytes that this user may still write there; nothing when that cannot be told.
    std::function<std::optional<std::uintmax_t>(const std::filesystem::path& folder)> freeSpace;
    // Whether a tray of the X server is there; nothing when no X server answers.
    std::function<std::optional<bool>()> hasWindowTray;
    // As the running agent says, and as an own look says; the first is empty when no agent tells.
    std::function<Browsers(cmn::bus::Deadline)> browsersOfAgent;
    std::function<Browsers(cmn::bus::Deadline)> browsersSeen;
    // Runs a program with arguments to its end, which comes before the deadline; whether it succeeded.
    std::function<bool(const std::vector<std::string>& command, cmn::bus::Deadline)> runs;

    // One of the system's files.
    std::filesystem::path system(const std::filesystem::path& absolute) const {
        return root / absolute.relative_path();
    }
    // The value of a variable, "" when it is not set.
    std::string variable(const char* name) const { return environment(name).value_or(""); }
};

// That of this process, for the agent of that bundle and with that folder for its logs, with the addresses of
// the two buses.
Machine ThisMachine(std::filesystem::path bundle, std::filesystem::path userLogs, std::string systemBus,
                    std::string sessionBus);

}  // namespace ctl
