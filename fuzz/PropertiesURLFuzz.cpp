// Any text is a URL of the product's scheme or none. A path comes back from its URL byte for byte, and the
// form of a URL that can travel says the same as the URL.

#include <string>

#include "Check.h"
#include "common/utf8.h"
#include "useragent/PropertiesURL.h"

using useragent::ParsePropertiesURL;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string_view text = AsText(data, size);
    const auto request = ParsePropertiesURL(text);
    Check(!request || !request->path || request->path->find('\0') == std::string::npos);
    Check(!request || size <= useragent::kLongestPropertiesURL);

    const std::string travelling = useragent::TextOfURL(text);
    Check(cmn::IsValidUtf8(travelling));
    Check(travelling.size() > useragent::kLongestPropertiesURL || ParsePropertiesURL(travelling) == request);

    const std::string url = useragent::PropertiesURLOf(text);
    const bool isPath = text.find('\0') == std::string_view::npos;
    if (url.size() <= useragent::kLongestPropertiesURL) {
        const auto again = ParsePropertiesURL(url);
        Check(again.has_value() == isPath && (!again || again->path == std::string(text)));
    }
    return 0;
}
