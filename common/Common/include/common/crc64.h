#pragma once

#include <cstdint>

namespace cmn {

// CRC-64/Jones without inversions: the seed is the initial value, the result is the register as it is. A
// length of 0 returns the seed. To continue over a further piece, pass the result as its seed.
std::uint64_t crc64(unsigned long long seed, const unsigned char* data, unsigned long long length);

}  // namespace cmn
