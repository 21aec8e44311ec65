#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace useragent {

// One on-screen window.
struct WindowInfo {
    std::optional<std::string> ownerName;   // application name as the product knows it, UTF-8
    std::int32_t ownerPid = 0;              // as the system counts it outside of any sandbox
    std::optional<std::string> title = {};  // UTF-8; nothing where the platform does not tell it
};

class WindowList {
 public:
    virtual ~WindowList() = default;

    // On-screen windows, at least those of the watched browsers, front to back; nothing when the list cannot
    // be had. Called on the polling thread; waits at most the platform end's call deadline.
    virtual std::optional<std::vector<WindowInfo>> copyOnScreenWindows() = 0;
};

}  // namespace useragent
