#include <array>
#include <cerrno>
#include <fstream>

#include "common/crc64.h"
#include "common/fs.h"
#include "file_failure.h"

namespace cmn {

namespace {

// What is read is still in the processor's nearer memory when it is summed up; large enough that the calls do
// not count, small enough for any thread's stack.
constexpr std::size_t kPiece = std::size_t{128} * 1024;

}  // namespace

std::uint64_t CalcFileHash(unsigned long long seed, const std::filesystem::path& path) {
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    std::array<char, kPiece> piece;
    std::uint64_t hash = seed;
    bool empty = true;
    while (in.read(piece.data(), piece.size()) || in.gcount() > 0) {
        hash = crc64(hash, reinterpret_cast<const unsigned char*>(piece.data()),
                     static_cast<unsigned long long>(in.gcount()));
        empty = false;
    }
    if (!in.eof() || in.bad())
        FailOnFile("CalcFileHash", "read", path, errno);
    // 0, not the seed, for an empty file; kept so.
    return empty ? 0 : hash;
}

std::uint64_t CalcPathHash(const std::filesystem::path& path) {
    const auto text = path.string();
    return crc64(0, reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

}  // namespace cmn
