#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace useragent {

// A request to show the properties of a file. Without a path when the URL names none.
struct PropertiesRequest {
    std::optional<std::string> path;  // the bytes of the URL, perhaps not UTF-8
    bool operator==(const PropertiesRequest&) const = default;
};

// Longer URLs are ignored: no path is that long.
inline constexpr std::size_t kLongestPropertiesURL = std::size_t{64} * 1024;

// Nothing unless the text is a well-formed URL with exactly the product's scheme and host, in their case. Of
// several "path" items the first counts; "+" stands for itself.
std::optional<PropertiesRequest> ParsePropertiesURL(std::string_view url);

// The URL for the file of that name, whose bytes may be any.
std::string PropertiesURLOf(std::string_view path);

// The same URL as text that can travel in a message: bytes that are no UTF-8 are percent-encoded.
std::string TextOfURL(std::string_view url);

}  // namespace useragent
