#include "common/bundle.h"

#include "common/SystemUtils.h"
#include "impl_linux/machine.h"
#include "impl_linux/property_list.h"

namespace cmn {

std::optional<std::string> GetBundleShortVersion() {
    const auto plist = ReadText(BundlePathOf(GetCurrentExecutablePath()) / "Contents/Info.plist");
    return plist ? FindPlistString(*plist, "CFBundleShortVersionString") : std::nullopt;
}

std::string GetSharedPath() {
    const std::filesystem::path executable = GetCurrentExecutablePath();
    return SharedPathOf(BundlePathOf(executable), executable);
}

}  // namespace cmn
