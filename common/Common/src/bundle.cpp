#include "common/bundle.h"

#include "plist_scanner.h"

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

std::optional<std::string> FindPlistString(std::string_view plist, std::string_view key) {
    // Elements of the top dictionary are the third level: <plist><dict><key>.
    constexpr int kEntryDepth = 3;
    PlistScanner scanner(plist);
    int depth = 0;
    bool found = false;
    for (auto token = scanner.next(); token.kind != PlistScanner::Kind::end; token = scanner.next()) {
        if (token.kind == PlistScanner::Kind::close)
            --depth;
        if (token.kind != PlistScanner::Kind::open || ++depth != kEntryDepth)
            continue;
        const bool isKey = token.text == "key";
        if (found && token.text != "string")
            return std::nullopt;
        if (!isKey && !found)
            continue;
        auto text = scanner.textOfElement();
        if (!text)
            return std::nullopt;
        --depth;
        if (found)
            return text;
        found = *text == key;
    }
    return std::nullopt;
}

}  // namespace cmn
