#include "common/crc64.h"

#include <array>
#include <cstddef>

namespace cmn {

namespace {

constexpr std::uint64_t kPolynomial = 0x95AC9329AC4BC9B5;  // 0xAD93D23594C935A9, reflected

constexpr std::size_t kWord = 8;   // bytes taken in one step
constexpr std::size_t kLanes = 4;  // words taken side by side: one look-up need not wait for another's result
constexpr std::size_t kBlock = kLanes * kWord;

using Table = std::array<std::uint64_t, 256>;
using WordTables = std::array<Table, kWord>;

constexpr std::uint64_t Step(const Table& table, std::uint64_t crc) {
    return table[crc & 0xFF] ^ (crc >> 8);
}

constexpr Table MakeByteTable() {
    Table table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = (table[i] >> 1) ^ ((table[i] & 1) != 0 ? kPolynomial : 0);
    }
    return table;
}

constexpr Table kByteTable = MakeByteTable();

// Entry [k][b] is what byte b as the k-th of a word comes to at the end of the word and `zeros` further bytes
// of zero.
constexpr WordTables MakeWordTables(std::size_t zeros) {
    WordTables tables{};
    Table table = kByteTable;
    for (std::size_t behind = 0; behind < zeros + kWord; ++behind) {
        if (behind >= zeros)
            tables[kWord - 1 - (behind - zeros)] = table;
        for (auto& crc : table)
            crc = Step(kByteTable, crc);
    }
    return tables;
}

constexpr WordTables kNext = MakeWordTables(0);
constexpr WordTables kNextBlock = MakeWordTables(kBlock - kWord);

// Little-endian whatever the machine; compilers make one load of it where they can.
std::uint64_t LoadWord(const unsigned char* data) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < kWord; ++i)
        value |= static_cast<std::uint64_t>(data[i]) << (8 * i);
    return value;
}

std::uint64_t TakeWord(const WordTables& tables, std::uint64_t word) {
    std::uint64_t crc = 0;
    for (std::size_t i = 0; i < kWord; ++i)
        crc ^= tables[i][(word >> (8 * i)) & 0xFF];
    return crc;
}

}  // namespace

std::uint64_t crc64(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    std::uint64_t crc = seed;
    if (length >= 2 * kBlock) {
        // Each lane carries its word on to the same place of the next block; the last block joins them.
        std::array<std::uint64_t, kLanes> lanes{crc};
        for (; length >= 2 * kBlock; data += kBlock, length -= kBlock) {
            for (std::size_t i = 0; i < kLanes; ++i)
                lanes[i] = TakeWord(kNextBlock, lanes[i] ^ LoadWord(data + i * kWord));
        }
        crc = 0;
        for (std::size_t i = 0; i < kLanes; ++i)
            crc = TakeWord(kNext, crc ^ lanes[i] ^ LoadWord(data + i * kWord));
        data += kBlock;
        length -= kBlock;
    }
    for (; length >= kWord; data += kWord, length -= kWord)
        crc = TakeWord(kNext, crc ^ LoadWord(data));
    for (; length > 0; ++data, --length)
        crc = kByteTable[(crc ^ *data) & 0xFF] ^ (crc >> 8);
    return crc;
}

}  // namespace cmn
