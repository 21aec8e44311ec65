#pragma once

#include <cstddef>
#include <cstdint>

// What crc64 consists of. All take and give what it does.
namespace cmn {

// Bytes from which on the road of large pieces is the faster one.
constexpr std::size_t kLargePiece = 16;

// By our own tables, for any length.
std::uint64_t TableCrc64(std::uint64_t seed, const unsigned char* data, std::size_t length);

// By what the build has for large pieces: a library that knows the processor, or our own tables.
std::uint64_t LargeCrc64(std::uint64_t seed, const unsigned char* data, std::size_t length);

}  // namespace cmn
