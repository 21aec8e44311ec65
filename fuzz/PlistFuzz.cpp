// Any text has a string under the key or none; a string is UTF-8 and no longer than the text.

#include <cstdlib>
#include <string_view>

#include "common/utf8.h"
#include "impl_linux/property_list.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto version = cmn::FindPlistString(text, "CFBundleShortVersionString");
    if (version && (!cmn::IsValidUtf8(*version) || version->size() > size))
        std::abort();
    return 0;
}
