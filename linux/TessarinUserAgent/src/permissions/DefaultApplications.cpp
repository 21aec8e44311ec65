#include "permissions/DefaultApplications.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <fstream>

namespace useragent {
namespace {

using std::filesystem::path;

// The values that a file of desktop programs has in that group for that key.
void AddValues(const path& file, std::string_view group, std::string_view key,
               std::vector<std::string>& found) {
    std::ifstream lines(file);
    bool isInGroup = false;
    for (std::string line; std::getline(lines, line);) {
        boost::algorithm::trim(line);
        if (line.starts_with('[')) {
            isInGroup = line == group;
        }
        const std::size_t equals = line.find('=');
        if (!isInGroup || equals == std::string::npos ||
            boost::algorithm::trim_copy(line.substr(0, equals)) != key) {
            continue;
        }
        std::string values = line.substr(equals + 1);
        for (std::size_t end = values.find(';'); !values.empty(); end = values.find(';')) {
            const std::string value = boost::algorithm::trim_copy(values.substr(0, end));
            if (!value.empty()) {
                found.push_back(value);
            }
            values.erase(0, end == std::string::npos ? end : end + 1);
        }
    }
}

// Most important first.
std::vector<path> ApplicationFolders(const XdgFolders& folders) {
    std::vector<path> places{folders.dataHome / "applications"};
    for (const path& folder : folders.dataFolders) {
        places.push_back(folder / "applications");
    }
    std::erase_if(places, [](const path& place) { return !place.is_absolute(); });
    return places;
}

}  // namespace

std::vector<std::string> DefaultApplications(const XdgFolders& folders,
                                             const std::vector<std::string>& desktopNames,
                                             std::string_view type) {
    std::vector<path> places{folders.configHome};
    places.insert(places.end(), folders.configFolders.begin(), folders.configFolders.end());
    std::erase_if(places, [](const path& place) { return !place.is_absolute(); });
    const std::vector<path> others = ApplicationFolders(folders);
    places.insert(places.end(), others.begin(), others.end());
    std::vector<std::string> chosen;
    for (const path& place : places) {
        for (const std::string& name : desktopNames) {
            AddValues(place / (boost::algorithm::to_lower_copy(name) + "-mimeapps.list"),
                      "[Default Applications]", type, chosen);
        }
        AddValues(place / "mimeapps.list", "[Default Applications]", type, chosen);
    }
    return chosen;
}

std::vector<std::string> KnownApplications(const XdgFolders& folders, std::string_view type) {
    std::vector<std::string> known;
    for (const path& place : ApplicationFolders(folders)) {
        AddValues(place / "mimeinfo.cache", "[MIME Cache]", type, known);
    }
    return known;
}

}  // namespace useragent
