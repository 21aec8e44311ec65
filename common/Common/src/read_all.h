#pragma once

#include <algorithm>
#include <cstddef>
#include <istream>
#include <limits>

namespace cmn {

inline constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max() - 1;

// Replaces `bytes` by everything up to the stream's end. False when reading failed. There is room for
// `expected` bytes from the beginning; beyond them it reads piece by piece, because what is no regular file
// has no size to trust. A stream of more than `limit` bytes is read to the first byte beyond it.
template <class Bytes>
bool ReadAll(std::istream& in, Bytes& bytes, std::size_t expected = 0, std::size_t limit = kNoLimit) {
    // One byte more than expected: the read that takes all also meets the end.
    const auto room = std::max<std::size_t>(expected + 1, 16384);
    std::size_t used = 0;
    bytes.clear();
    do {
        bytes.resize(std::min(std::max(2 * used, room), limit + 1));
        in.read(reinterpret_cast<char*>(bytes.data()) + used,
                static_cast<std::streamsize>(bytes.size() - used));
        used += static_cast<std::size_t>(in.gcount());
    } while (used == bytes.size() && used <= limit);
    bytes.resize(used);
    return (in.eof() || used > limit) && !in.bad();
}

}  // namespace cmn
