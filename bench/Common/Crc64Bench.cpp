// The checksum beside the loop over one table that takes byte after byte.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "common/crc64.h"

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

void Register(const char* who, Checksum checksum) {
    for (const std::size_t size : {16U, 256U, 4'096U, 65'536U, 1U << 20, 1U << 24}) {
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
    Register("byte_loop", ByteLoop);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
