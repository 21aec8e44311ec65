// The readers of the system's text files take any text, and what they return has its form.

#include <cstdlib>
#include <string_view>

#include "common/utf8.h"
#include "impl_linux/machine.h"
#include "impl_linux/process.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto value = cmn::FindAssignment(text, "NAME");
    if (value && value->size() > size)
        std::abort();
    cmn::FormatOSName(text, "x86_64");
    for (const auto& interfaces : {cmn::DefaultRouteInterfaces(text), cmn::DefaultRouteInterfacesV6(text)}) {
        for (const auto& interface : interfaces) {
            if (text.find(interface) == std::string_view::npos)
                std::abort();
        }
    }
    if (cmn::FormatMACAddress(text).find_first_not_of("0123456789ABCDEF") != std::string_view::npos ||
        cmn::FormatMACAddress(text).size() != 12)
        std::abort();
    cmn::StripDeletedMark(std::string(text));
    cmn::IsValidUtf8(text);
    return 0;
}
