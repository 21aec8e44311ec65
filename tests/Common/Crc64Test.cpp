#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/crc64.h"

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

TEST(Crc64Test, EqualsTheDefinitionForEveryLengthAndAlignment) {
    std::mt19937_64 random(20'261'121);
    std::vector<unsigned char> bytes(400);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random());
    for (std::size_t alignment = 0; alignment < 16; ++alignment) {
        for (std::size_t length = 0; length <= 300; ++length) {
            const auto seed = random();
            const auto* data = bytes.data() + alignment;
            ASSERT_EQ(cmn::crc64(seed, data, length), BitwiseCrc(seed, data, length))
                << "alignment " << alignment << ", length " << length;
        }
    }
}

}  // namespace
