#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace useragent {

// The application's name on the session bus, where there is one. A desktop file of the same name starts it.
inline constexpr const char* kApplicationName = "com.tessarin.TessarinUserAgent";
inline constexpr const char* kApplicationPath = "/com/tessarin/TessarinUserAgent";
// Its interface there for `AgentStatus`, with one method: takes whether addresses are wanted, answers with
// JSON.
inline constexpr const char* kStatusInterface = "com.tessarin.TessarinUserAgent.Status";
inline constexpr const char* kStatusMethod = "Get";

// Process owner names of the watched browsers, as the applications name themselves.
std::vector<std::string> BrowserList();

// Log file stem of an agent whose executable has this path: a file name in the folder that holds its bundle.
std::filesystem::path LogStem(const std::filesystem::path& executable);

}  // namespace useragent
