// Any text has a string under the key or none; tokens never run on without end.

#include <cstdlib>
#include <string_view>

#include "common/bundle.h"
#include "plist_scanner.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    cmn::FindPlistString(text, "CFBundleShortVersionString");
    cmn::PlistScanner scanner(text);
    // An empty element makes two tokens of its four characters; nothing makes more.
    for (std::size_t tokens = 0; scanner.next().kind != cmn::PlistScanner::Kind::end; ++tokens) {
        if (tokens > size)
            std::abort();
    }
    return 0;
}
