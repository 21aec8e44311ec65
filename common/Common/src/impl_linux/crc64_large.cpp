#include <isa-l/crc64.h>

#include "crc64_parts.h"

namespace cmn {

// The library's is the same checksum with register and result inverted.
std::uint64_t LargeCrc64(std::uint64_t seed, const unsigned char* data, std::size_t length) {
    return ~crc64_jones_refl(~seed, data, length);
}

}  // namespace cmn
