#include "impl_linux/property_list.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <sstream>

#include "common/utf8.h"

namespace cmn {

namespace {

using boost::property_tree::ptree;
namespace xml = boost::property_tree::xml_parser;

constexpr auto kAttributes = "<xmlattr>";

std::optional<ptree> Parse(std::string_view text) {
    std::istringstream in{std::string(text)};
    ptree tree;
    try {
        xml::read_xml(in, tree, xml::no_comments);
    } catch (const xml::xml_parser_error&) {
        return std::nullopt;
    }
    return tree;
}

// Empty when the element holds another one, or what is no text.
std::optional<std::string> TextOf(const ptree& element) {
    const auto& text = element.data();
    const bool attributesAlone = element.size() == element.count(kAttributes);
    if (!attributesAlone || !IsValidUtf8(text) || text.find('\0') != std::string::npos)
        return std::nullopt;
    return text;
}

}  // namespace

std::optional<std::string> FindPlistString(std::string_view plist, std::string_view key) {
    if (plist.size() > kMaxPropertyList)
        return std::nullopt;
    const auto tree = Parse(plist);
    const auto entries = tree ? tree->get_child_optional("plist.dict") : boost::none;
    if (!entries)
        return std::nullopt;
    bool found = false;
    for (const auto& [name, element] : *entries) {
        if (found)
            return name == "string" ? TextOf(element) : std::nullopt;
        found = name == "key" && TextOf(element) == key;
    }
    return std::nullopt;
}

}  // namespace cmn
