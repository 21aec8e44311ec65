#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "common/Redaction.h"

namespace cmn {

// How a log of the product writes its lines.
struct LogLine {
    bool isHead = false;   // a line of the log, not one that goes on with what the line before said
    std::size_t body = 0;  // where it is that others may have chosen the text
    std::optional<SecretKind> kind = std::nullopt;  // what stands there and nothing else, if that is known
    std::size_t tail = 0;  // bytes at the end of the line that are the program's own again
};

// The first line of the text.
LogLine LookAtLogLine(std::string_view text);

}  // namespace cmn
