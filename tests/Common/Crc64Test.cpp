#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "common/crc64.h"
#include "crc64_parts.h"

namespace {

std::uint64_t Crc(const std::string& text, unsigned long long seed = 0) {
    return cmn::crc64(seed, reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

// Bit by bit, straight from the polynomial.
std::uint64_t BitwiseCrc(std::uint64_t crc, const unsigned char* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x95AC9329AC4BC9B5U : 0);
    }
    return crc;
}

TEST(Crc64Test, HasThePublishedCheckValue) {
    EXPECT_EQ(Crc("123456789"), 0xE9C6D914C4B8D9CAU);
}

TEST(Crc64Test, ReturnsTheSeedForNoBytes) {
    EXPECT_EQ(cmn::crc64(0, nullptr, 0), 0U);
    EXPECT_EQ(cmn::crc64(0x0123456789ABCDEF, nullptr, 0), 0x0123456789ABCDEFU);
}

TEST(Crc64Test, NeitherInvertsNorHidesLeadingZerosOfASeed) {
    EXPECT_EQ(Crc(std::string(20, '\0')), 0U);
    EXPECT_NE(Crc(std::string(20, '\0'), 1), 0U);
}

TEST(Crc64Test, ContinuesFromAResult) {
    const std::string text = "The quick brown fox jumps over the lazy dog";
    for (std::size_t cut = 0; cut <= text.size(); ++cut)
        EXPECT_EQ(Crc(text.substr(cut), Crc(text.substr(0, cut))), Crc(text)) << cut;
}

std::vector<unsigned char> RandomBytes(std::size_t size) {
    std::mt19937_64 random(20'261'121);
    std::vector<unsigned char> bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

using Checksum = std::uint64_t (*)(unsigned long long, const unsigned char*, unsigned long long);

// What callers have, and our own tables, which stand in for the library where there is none.
class Crc64RoadsTest : public testing::TestWithParam<Checksum> {};

std::uint64_t ByTables(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    return cmn::TableCrc64(seed, data, length);
}

INSTANTIATE_TEST_SUITE_P(, Crc64RoadsTest, testing::Values(cmn::crc64, ByTables),
                         [](const auto& test) { return test.index == 0 ? "Chosen" : "ByTables"; });

TEST_P(Crc64RoadsTest, EqualsTheDefinitionForEveryLengthAndAlignment) {
    std::mt19937_64 random(1);
    const auto bytes = RandomBytes(400);
    for (std::size_t alignment = 0; alignment < 16; ++alignment) {
        for (std::size_t length = 0; length <= 300; ++length) {
            const auto seed = random();
            const auto* data = bytes.data() + alignment;
            ASSERT_EQ(GetParam()(seed, data, length), BitwiseCrc(seed, data, length))
                << "alignment " << alignment << ", length " << length;
        }
    }
}

TEST_P(Crc64RoadsTest, EqualsTheDefinitionForManyBytes) {
    const auto bytes = RandomBytes(1'000'003);
    EXPECT_EQ(GetParam()(7, bytes.data(), bytes.size()), BitwiseCrc(7, bytes.data(), bytes.size()));
}

TEST_P(Crc64RoadsTest, IsTheSameHoweverThePiecesAreCut) {
    std::mt19937_64 random(2);
    const auto bytes = RandomBytes(20'000);
    for (int round = 0; round < 20'000; ++round) {
        // Short and long pieces alike, from anywhere.
        const auto length = random() % (std::size_t{1} << (random() % 14));
        const auto* const data = bytes.data() + random() % (bytes.size() - length);
        const auto cut = length == 0 ? 0 : random() % (length + 1);
        const auto seed = random();
        const auto whole = cmn::TableCrc64(seed, data, length);
        const auto pieces = GetParam()(GetParam()(seed, data, cut), data + cut, length - cut);
        ASSERT_EQ(pieces, whole) << "length " << length << ", cut " << cut;
    }
}

}  // namespace
