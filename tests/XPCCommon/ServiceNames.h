#pragma once

// The two services as other programs on a bus know them.
inline constexpr const char* kAgent = "com.tessarin.UserAgent";
inline constexpr const char* kAgentPath = "/com/tessarin/UserAgent";
inline constexpr const char* kFinder = "com.tessarin.FinderExtension";
inline constexpr const char* kFinderPath = "/com/tessarin/FinderExtension";
