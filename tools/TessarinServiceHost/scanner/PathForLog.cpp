#include "PathForLog.h"

#include <fmt/format.h>

#include "CutPosition.h"
#include "common/utf8.h"

namespace host {

namespace {

constexpr std::size_t kLongest = 200;

}  // namespace

std::string PathForLog(std::string_view path) {
    const bool isLong = path.size() > kLongest;
    const std::string_view shown = isLong ? path.substr(0, CutPosition(path, kLongest)) : path;
    const std::string text = cmn::EscapeControls(shown);
    return isLong ? text + fmt::format("... ({} bytes)", path.size()) : text;
}

}  // namespace host
