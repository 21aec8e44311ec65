#pragma once

#include <filesystem>

namespace useragent {

// The application's name on the session bus, where there is one. A desktop file of the same name starts it.
inline constexpr const char* kApplicationName = "com.tessarin.TessarinUserAgent";

// Log file stem of an agent whose executable has this path: a file name in the folder that holds its bundle.
std::filesystem::path LogStem(const std::filesystem::path& executable);

}  // namespace useragent
