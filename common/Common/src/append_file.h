#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace cmn {

// What LogOutput::append says, and the stream that its echo writes to. Both may be called in a signal
// handler.
std::optional<std::size_t> AppendToFile(const char* file, std::string_view text) noexcept;
void WriteToStandardError(std::string_view text) noexcept;

}  // namespace cmn
