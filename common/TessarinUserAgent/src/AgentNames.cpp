#include "useragent/AgentNames.h"

namespace useragent {

std::filesystem::path LogStem(const std::filesystem::path& executable) {
    // Executable, its folder, Contents, the bundle: the fourth parent holds the bundle.
    return executable.parent_path().parent_path().parent_path().parent_path() / "com.tessarin.UserAgent";
}

}  // namespace useragent
