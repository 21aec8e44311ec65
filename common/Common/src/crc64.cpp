#include "common/crc64.h"

#include <array>
#include <cstddef>
#include <utility>

#include "crc64_parts.h"

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

// Written out at compile time: at the level that ships the optimiser leaves short loops as they are.
template <std::size_t... I>
constexpr std::uint64_t JoinBytes(const unsigned char* data, std::index_sequence<I...>) {
    return ((static_cast<std::uint64_t>(data[I]) << (8 * I)) | ...);
}

template <std::size_t... I>
std::uint64_t LookUpBytes(const WordTables& tables, std::uint64_t word, std::index_sequence<I...>) {
    return (tables[I][(word >> (8 * I)) & 0xFF] ^ ...);
}

// Little-endian whatever the machine; compilers make one load of it where they can.
std::uint64_t LoadWord(const unsigned char* data) {
    return JoinBytes(data, std::make_index_sequence<kWord>());
}

std::uint64_t TakeWord(const WordTables& tables, std::uint64_t word) {
    return LookUpBytes(tables, word, std::make_index_sequence<kWord>());
}

std::uint64_t BytesCrc64(std::uint64_t crc, const unsigned char* data, std::size_t length) {
    for (; length > 0; ++data, --length)
        crc = Step(kByteTable, crc ^ *data);
    return crc;
}

std::uint64_t SmallCrc64(std::uint64_t crc, const unsigned char* data, std::size_t length) {
    for (; length >= kWord; data += kWord, length -= kWord)
        crc = TakeWord(kNext, crc ^ LoadWord(data));
    return BytesCrc64(crc, data, length);
}

template <std::size_t... I>
std::uint64_t BlocksCrc64(std::uint64_t crc, const unsigned char*& data, std::size_t& length,
                          std::index_sequence<I...>) {
    // Each lane carries its word on to the same place of the next block; the last block joins them.
    std::uint64_t lanes[kLanes]{crc};
    for (; length >= 2 * kBlock; data += kBlock, length -= kBlock)
        ((lanes[I] = TakeWord(kNextBlock, lanes[I] ^ LoadWord(data + I * kWord))), ...);
    crc = 0;
    ((crc = TakeWord(kNext, crc ^ lanes[I] ^ LoadWord(data + I * kWord))), ...);
    data += kBlock;
    length -= kBlock;
    return crc;
}

}  // namespace

std::uint64_t TableCrc64(std::uint64_t seed, const unsigned char* data, std::size_t length) {
    if (length >= 2 * kBlock)
        seed = BlocksCrc64(seed, data, length, std::make_index_sequence<kLanes>());
    return SmallCrc64(seed, data, length);
}

std::uint64_t crc64(unsigned long long seed, const unsigned char* data, unsigned long long length) {
    if (length < kWord)
        return BytesCrc64(seed, data, length);
    return length < kLargePiece ? SmallCrc64(seed, data, length) : LargeCrc64(seed, data, length);
}

}  // namespace cmn
