#include "common/bundle.h"

namespace cmn {

namespace fs = std::filesystem;

fs::path BundlePathOf(const fs::path& executable) {
    const auto contents = executable.parent_path().parent_path();
    auto bundle = contents.parent_path();
    if (contents.filename() == "Contents" && bundle.extension() == ".app")
        return bundle;
    return executable.parent_path();
}

fs::path SharedPathOf(const fs::path& bundle, const fs::path& executable) {
    const auto folder = executable.parent_path();
    return bundle == folder ? folder : bundle.parent_path();
}

}  // namespace cmn
