// The checksum and our tables beside the loop over one table that takes byte after byte and beside ISA-L; the
// checksum of a file beside reading it.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <isa-l/crc64.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TemporaryFolder.h"
#include "common/crc64.h"
#include "common/fs.h"
#include "crc64_parts.h"

namespace {

constexpr std::uint64_t kPolynomial = 0x95AC9329AC4BC9B5;
constexpr std::uint64_t kSeed = 0x0123456789ABCDEF;

using Checksum = std::uint64_t (*)(unsigned long long, const unsigned char*, unsigned long long);

std::array<std::uint64_t, 256> MakeTable() {
    std::array<std::uint64_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = (table[i] >> 1) ^ ((table[i] & 1) != 0 ? kPolynomial : 0);
    }
    return table;
}

std::uint64_t ByteLoop(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    static const auto table = MakeTable();
    std::uint64_t crc = seed;
    for (unsigned long long i = 0; i < length; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

std::uint64_t Tables(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    return cmn::TableCrc64(seed, data, length);
}

std::uint64_t IsaL(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    return ~crc64_jones_refl(~seed, data, length);
}

std::vector<unsigned char> RandomBytes(std::size_t size) {
    std::mt19937 random(64);
    std::vector<unsigned char> bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random() & 0xFF);
    return bytes;
}

void Run(benchmark::State& state, Checksum checksum, std::size_t size) {
    const auto bytes = RandomBytes(size);
    if (checksum(kSeed, bytes.data(), size) != ByteLoop(kSeed, bytes.data(), size)) {
        state.SkipWithError("the results differ");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(checksum(kSeed, bytes.data(), size));
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

constexpr std::size_t kFileSize = std::size_t{256} << 20;

std::filesystem::path MakeFile(const bench::TemporaryFolder& folder) {
    const auto file = folder / "large";
    const auto bytes = RandomBytes(1 << 20);
    const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    for (std::size_t written = 0; written < kFileSize; written += bytes.size()) {
        if (write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            throw std::runtime_error("no room for the file that is hashed");
    }
    close(fd);
    return file;
}

long HighestMemoryKib() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void HashFile(benchmark::State& state, const std::filesystem::path& file) {
    const auto before = HighestMemoryKib();
    for (auto _ : state)
        benchmark::DoNotOptimize(cmn::CalcFileHash(kSeed, file));
    // What more than before the process has held at a time.
    if (const auto more = HighestMemoryKib() - before; more > 2 * 1024)
        state.SkipWithError(fmt::format("takes {} KiB", more).c_str());
}

// As programs that copy files do it.
void ReadPlainly(benchmark::State& state, const std::filesystem::path& file) {
    std::vector<char> piece(128 * 1024);
    for (auto _ : state) {
        const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        std::size_t total = 0;
        for (ssize_t got = 1; got > 0; total += static_cast<std::size_t>(got))
            got = read(fd, piece.data(), piece.size());
        close(fd);
        if (total != kFileSize)
            state.SkipWithError("not the whole file");
    }
}

void Register(const char* who, Checksum checksum) {
    for (const std::size_t size : {1U, 7U, 8U, 16U, 31U, 64U, 256U, 4'096U, 65'536U, 1U << 20, 1U << 24}) {
        benchmark::RegisterBenchmark(fmt::format("crc64/{}/{}", size, who).c_str(),
                                     [=](benchmark::State& state) { Run(state, checksum, size); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Register("ours", cmn::crc64);
    Register("tables", Tables);
    Register("byte_loop", ByteLoop);
    Register("isal", IsaL);
    const bench::TemporaryFolder folder;
    const auto file = MakeFile(folder);
    benchmark::RegisterBenchmark("file_hash/256MiB/ours", HashFile, file)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("file_hash/256MiB/read", ReadPlainly, file)->Unit(benchmark::kMillisecond);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
