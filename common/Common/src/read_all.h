#pragma once

#include <algorithm>
#include <istream>

namespace cmn {

// Replaces `bytes` by everything up to the stream's end. False when reading failed. Reads piece by piece,
// because what is no regular file has no size to trust.
template <class Bytes>
bool ReadAll(std::istream& in, Bytes& bytes) {
    std::size_t used = 0;
    do {
        bytes.resize(std::max<std::size_t>(2 * used, 16384));
        in.read(reinterpret_cast<char*>(bytes.data()) + used,
                static_cast<std::streamsize>(bytes.size() - used));
        used += static_cast<std::size_t>(in.gcount());
    } while (used == bytes.size());
    bytes.resize(used);
    return in.eof() && !in.bad();
}

}  // namespace cmn
