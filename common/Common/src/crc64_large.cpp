#include "crc64_parts.h"

namespace cmn {

std::uint64_t LargeCrc64(std::uint64_t seed, const unsigned char* data, std::size_t length) {
    return TableCrc64(seed, data, length);
}

}  // namespace cmn
