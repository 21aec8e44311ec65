#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace useragent {

// Who is behind a process that a bus knows. A program in a sandbox of Flatpak reaches the bus through a proxy
// outside, and the bus knows the proxy. Asks the files of the system; any thread.
class Sandboxes {
 public:
    struct Places {
        std::filesystem::path processes;  // as /proc
        std::filesystem::path instances;  // a folder for each sandbox that runs, by its name
    };
    static Places PlacesOfThisSession();

    explicit Sandboxes(Places places = PlacesOfThisSession()) : places_(std::move(places)) {}

    bool isProxy(std::int32_t pid) const;

    // The program that the proxy serves, as the system counts processes outside of the sandbox: one of
    // `wanted` if it is in the same sandbox, else the sandbox's main program. 0 when it cannot be told.
    std::int32_t programBehind(std::int32_t proxy, const std::vector<std::int32_t>& wanted) const;

 private:
    std::string sandboxOf(std::int32_t pid) const;  // its name; empty for none
    std::int32_t mainProgramOf(const std::string& sandbox) const;
    std::int32_t firstChildOf(std::int32_t pid) const;
    std::string nameOf(std::int32_t pid) const;
    std::filesystem::path fileOf(std::int32_t pid, const char* file) const;

    const Places places_;
};

}  // namespace useragent
