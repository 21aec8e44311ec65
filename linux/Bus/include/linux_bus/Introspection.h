#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// What objects tell of themselves to who looks at them, in the standard's XML.
namespace cmn::bus {

// `kind` is "method" or "signal". `names`: those of the arguments, then those of the answer; there may be
// fewer. Each type is a complete one.
std::string DescribeMember(const char* kind, std::string_view name, const std::vector<std::string>& names,
                           const std::vector<std::string>& in, const std::vector<std::string>& out,
                           bool noReply = false);
std::string DescribeInterface(std::string_view name, std::string_view members);
// An object with its interfaces, or none, and what is below it.
std::string DescribeNode(std::string_view interfaces, const std::set<std::string>& below);

// The first parts of the paths below one.
template <typename Object>
std::set<std::string> NamesBelow(std::string_view path,
                                 const std::map<std::string, Object, std::less<>>& objects) {
    const std::string above = path.ends_with('/') ? std::string(path) : std::string(path) + '/';
    std::set<std::string> below;
    for (const auto& [other, object] : objects) {
        if (other.starts_with(above) && other != above) {
            below.insert(other.substr(above.size(), other.find('/', above.size()) - above.size()));
        }
    }
    return below;
}

}  // namespace cmn::bus
