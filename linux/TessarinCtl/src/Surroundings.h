#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ctl {

// Where the program finds the product and the buses. Tests put their own in its place.
struct Surroundings {
    std::string sessionBus;  // address lists; empty when unknown
    std::string systemBus;
    std::filesystem::path agent;     // executable of the agent, in its bundle; need not exist
    std::filesystem::path userLogs;  // folder of this user's logs; empty when there is none

    // "settings.json" of the product.
    std::filesystem::path settings() const;
};

// Those of the running program: the bundle beside it, as in a build folder, else the installed one.
Surroundings OwnSurroundings();

}  // namespace ctl
