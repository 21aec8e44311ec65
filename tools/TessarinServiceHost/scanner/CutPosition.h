#pragma once

#include <cstddef>
#include <string_view>

namespace host {

// Where to cut a text that is longer than `limit` bytes: at the limit, or before the UTF-8 character that
// would be cut in two there.
std::size_t CutPosition(std::string_view text, std::size_t limit);

}  // namespace host
