#pragma once

#include <string>
#include <string_view>

namespace host {

// A path as it can stand in a line of the log (cmn::EscapeControls), one of more than some 200 bytes
// shortened.
std::string PathForLog(std::string_view path);

}  // namespace host
