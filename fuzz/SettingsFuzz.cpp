// Any text is a record or an exception of the announced kinds; a record survives being written and read
// again.

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "common/settings_json.h"

using cmn::proto::JsonToObjectImpl;
using cmn::proto::ObjectToJson;
using cmn::proto::TSettings;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    TSettings settings;
    try {
        settings = JsonToObjectImpl<TSettings>(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const std::runtime_error&) {
        return 0;
    } catch (const std::logic_error&) {
        return 0;  // a number's place holds a text that is none
    }
    // What is not written and what lies behind a NUL is lost the first time.
    const auto text = ObjectToJson(settings);
    if (ObjectToJson(JsonToObjectImpl<TSettings>(text)) != text)
        std::abort();
    return 0;
}
