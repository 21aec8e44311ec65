#include "useragent/AgentNames.h"

namespace useragent {

std::vector<std::string> BrowserList() {
    return {"Safari", "Google Chrome", "Firefox"};
}

std::filesystem::path LogStem(const std::filesystem::path& executable) {
    // Executable, its folder, Contents, the bundle: the fourth parent holds the bundle.
    return executable.parent_path().parent_path().parent_path().parent_path() / "com.tessarin.UserAgent";
}

}  // namespace useragent
