#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace ctl {

// How long a command waits for others.
struct Patience {
    std::chrono::milliseconds status{4000};   // for all that the status asks
    std::chrono::milliseconds bus{2000};      // for a bus, and for its own answers
    std::chrono::milliseconds open{20'000};   // for the agent to open a window
    std::chrono::milliseconds start{15'000};  // for an agent that was started
    std::chrono::milliseconds scan{10'000};   // for the service to look at a file
};

// Where the program finds the product and the buses. Tests put their own in its place.
struct Surroundings {
    std::string sessionBus;  // address lists; empty when unknown
    std::string systemBus;
    std::filesystem::path agent;     // executable of the agent, in its bundle; need not exist
    std::filesystem::path userLogs;  // folder of this user's logs; empty when there is none

    Patience patience = {};

    // "settings.json" of the product.
    std::filesystem::path settings() const;
};

// Those of the running program: the bundle beside it, as in a build folder, else the installed one.
Surroundings OwnSurroundings();

}  // namespace ctl
