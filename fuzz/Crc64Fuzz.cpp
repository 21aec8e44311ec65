// The checksum of a whole is that of its pieces, cut anywhere.

#include <cstdlib>

#include "common/crc64.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::size_t cut = (data[0] * 256U + data[1]) % size;
    if (cmn::crc64(cmn::crc64(1, data, cut), data + cut, size - cut) != cmn::crc64(1, data, size))
        std::abort();
    return 0;
}
