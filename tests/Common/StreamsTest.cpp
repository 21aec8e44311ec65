#include <gmock/gmock.h>

#include <limits>
#include <locale>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Failures.h"
#include "common/streams.h"

namespace {

using cmn::IStream;
using cmn::MemStream;
using fake::FailureOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Bytes = std::vector<unsigned char>;

Bytes Counting(std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

Bytes ContentOf(IStream& stream) {
    Bytes bytes;
    cmn::StreamToBin(stream, bytes, 0, stream.size());
    return bytes;
}

TEST(MemStreamTest, ReadsUpToItsEnd) {
    MemStream stream(Counting(10));
    Bytes buffer(5, 0);
    EXPECT_EQ(stream.read(buffer.data(), 5, 8), 2U);
    EXPECT_THAT(buffer, ElementsAre(9, 10, 0, 0, 0));
    EXPECT_EQ(stream.read(buffer.data(), 5, 0), 5U);
    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(stream.read(buffer.data(), 0, 3), 0U);
}

TEST(MemStreamTest, ReadingAtOrPastTheEndIsMinusOne) {
    MemStream stream(Counting(10));
    Bytes buffer(5, 7);
    const auto minusOne = std::numeric_limits<unsigned long long>::max();
    EXPECT_EQ(IStream::kPastEnd, minusOne);
    EXPECT_EQ(stream.read(buffer.data(), 5, 10), minusOne);
    EXPECT_EQ(stream.read(buffer.data(), 5, 11), minusOne);
    EXPECT_EQ(stream.read(buffer.data(), 0, 10), minusOne);
    EXPECT_EQ(stream.read(buffer.data(), 1, minusOne), minusOne);
    EXPECT_EQ(MemStream().read(buffer.data(), 1, 0), minusOne);
    EXPECT_THAT(buffer, Each(7));
}

TEST(MemStreamTest, HugeSizesDoNotOverflowARead) {
    MemStream stream(Counting(10));
    Bytes buffer(10, 0);
    EXPECT_EQ(stream.read(buffer.data(), std::numeric_limits<unsigned long long>::max(), 7), 3U);
}

TEST(MemStreamTest, WritingPastTheEndFillsTheGapWithZeros) {
    MemStream stream(Counting(10));
    const Bytes data{0xAA, 0xBB};
    EXPECT_EQ(stream.write(data.data(), 2, 20), 2U);
    EXPECT_EQ(stream.size(), 22U);
    auto expected = Counting(10);
    expected.resize(20, 0);
    expected.insert(expected.end(), data.begin(), data.end());
    EXPECT_THAT(ContentOf(stream), ElementsAreArray(expected));
}

TEST(MemStreamTest, WritesInPlaceAndOverItsEnd) {
    MemStream stream(Counting(4));
    const Bytes data{20, 21, 22};
    EXPECT_EQ(stream.write(data.data(), 3, 0), 3U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(20, 21, 22, 4));
    EXPECT_EQ(stream.write(data.data(), 3, 2), 3U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(20, 21, 20, 21, 22));
}

TEST(MemStreamTest, MayWriteItsOwnBytes) {
    MemStream stream(Counting(100));
    unsigned long long size = 100;
    // Growing moves the bytes.
    EXPECT_EQ(stream.write(stream.getmem(0, size), 100, 100), 100U);
    auto expected = Counting(100);
    expected.insert(expected.end(), expected.begin(), expected.begin() + 100);
    EXPECT_THAT(ContentOf(stream), ElementsAreArray(expected));
    // Behind a gap, from the middle on.
    size = 10;
    EXPECT_EQ(stream.write(stream.getmem(50, size), 10, 1'000), 10U);
    expected.resize(1'000, 0);
    for (unsigned char byte = 51; byte <= 60; ++byte)
        expected.push_back(byte);
    EXPECT_THAT(ContentOf(stream), ElementsAreArray(expected));
}

TEST(MemStreamTest, MayWriteItsOwnBytesOverThemselves) {
    MemStream stream(Counting(10));
    unsigned long long size = 8;
    EXPECT_EQ(stream.write(stream.getmem(0, size), 8, 1), 8U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 1, 2, 3, 4, 5, 6, 7, 8, 10));
    EXPECT_EQ(stream.write(stream.getmem(1, size), 8, 0), 8U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 8, 10));
    size = 10;
    EXPECT_EQ(stream.write(stream.getmem(0, size), 10, 5), 10U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 6, 7, 8, 8, 10));
}

TEST(MemStreamTest, WritingNothingPastTheEndGrowsItAllTheSame) {
    MemStream stream;
    EXPECT_EQ(stream.write(nullptr, 0, 3), 0U);
    EXPECT_THAT(ContentOf(stream), ElementsAre(0, 0, 0));
    EXPECT_EQ(stream.write(nullptr, 0, 1), 0U);
    EXPECT_EQ(stream.size(), 3U);
}

TEST(MemStreamTest, ReportsALengthThatCannotBe) {
    MemStream stream(Counting(2));
    const Bytes data{1, 2};
    const auto max = std::numeric_limits<unsigned long long>::max();
    EXPECT_THROW(stream.write(data.data(), 2, max), std::runtime_error);
    EXPECT_THROW(stream.write(data.data(), 2, max / 2), std::runtime_error);
    EXPECT_EQ(stream.size(), 2U);
}

TEST(MemStreamTest, ManySmallWritesMoveTheBytesRarely) {
    MemStream stream;
    const unsigned char byte = 1;
    int moves = 0;
    const unsigned char* before = nullptr;
    for (unsigned long long i = 0; i < 100'000; ++i) {
        stream.write(&byte, 1, i);
        unsigned long long size = 1;
        const auto* now = stream.getmem(0, size);
        moves += now != before ? 1 : 0;
        before = now;
    }
    // Each move at least doubles the room.
    EXPECT_LE(moves, 18);
}

TEST(MemStreamTest, TruncatesAndExtendsWithZeros) {
    MemStream stream(Counting(4));
    stream.trunc(2);
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 2));
    stream.trunc(4);
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 2, 0, 0));
    stream.trunc(0);
    EXPECT_EQ(stream.size(), 0U);
}

TEST(MemStreamTest, FlushDoesNothing) {
    MemStream stream(Counting(3));
    stream.flush();
    EXPECT_THAT(ContentOf(stream), ElementsAre(1, 2, 3));
}

TEST(MemStreamTest, GivesItsBytesInPlace) {
    MemStream stream(Counting(10));
    unsigned long long size = 3;
    EXPECT_EQ(*stream.getmem(4, size), 5);
    EXPECT_EQ(size, 3U);
    size = 100;
    EXPECT_EQ(*stream.getmem(8, size), 9);
    EXPECT_EQ(size, 2U);
    size = std::numeric_limits<unsigned long long>::max();
    stream.getmem(0, size);
    EXPECT_EQ(size, 10U);
    size = 0;
    EXPECT_EQ(*stream.getmem(9, size), 10);
    EXPECT_EQ(size, 0U);
}

TEST(MemStreamTest, HasNoBytesAtOrPastItsEnd) {
    MemStream stream(Counting(10));
    unsigned long long size = 3;
    EXPECT_EQ(FailureOf([&] { stream.getmem(10, size); }), "Stream has no offset: 10");
    EXPECT_EQ(FailureOf([&] { stream.getmem(18'446'744'073'709'551'615U, size); }),
              "Stream has no offset: 18446744073709551615");
    EXPECT_EQ(size, 3U);
    MemStream empty;
    EXPECT_EQ(FailureOf([&] { empty.getmem(0, size); }), "Stream has no offset: 0");
    EXPECT_THROW(empty.getmem(0, size), std::runtime_error);
}

// A stream that takes or gives fewer bytes from its limit on, and counts the calls.
class LimitedStream : public MemStream {
 public:
    using MemStream::MemStream;
    unsigned long long read(unsigned char* buffer, unsigned long long size,
                            unsigned long long offset) override {
        reads.push_back(size);
        const auto count = MemStream::read(buffer, size, offset);
        return offset >= limit ? answer : count;
    }
    unsigned long long write(const unsigned char* data, unsigned long long size,
                             unsigned long long offset) override {
        writes.push_back(size);
        const auto count = MemStream::write(data, size, offset);
        return offset >= limit ? answer : count;
    }

    unsigned long long limit = std::numeric_limits<unsigned long long>::max();
    unsigned long long answer = 0;
    std::vector<unsigned long long> reads;
    std::vector<unsigned long long> writes;
};

TEST(StreamToStreamTest, CopiesInPiecesToTheSameOffsets) {
    LimitedStream source(Counting(10));
    LimitedStream target(Bytes(12, 0xFF));
    cmn::StreamToStream(source, target, 4);
    EXPECT_THAT(source.reads, ElementsAre(4, 4, 2));
    EXPECT_THAT(target.writes, ElementsAre(4, 4, 2));
    auto expected = Counting(10);
    expected.resize(12, 0xFF);
    EXPECT_THAT(ContentOf(target), ElementsAreArray(expected));
}

TEST(StreamToStreamTest, TakesPiecesLargerThanTheStream) {
    LimitedStream source(Counting(10));
    LimitedStream target;
    cmn::StreamToStream(source, target, std::numeric_limits<unsigned long long>::max());
    EXPECT_THAT(source.reads, ElementsAre(10));
    EXPECT_THAT(ContentOf(target), ElementsAreArray(Counting(10)));
}

// A stream that nobody may touch.
class UntouchedStream : public IStream {
 public:
    unsigned long long read(unsigned char*, unsigned long long, unsigned long long) override {
        ADD_FAILURE() << "read";
        return 0;
    }
    unsigned long long write(const unsigned char*, unsigned long long, unsigned long long) override {
        ADD_FAILURE() << "write";
        return 0;
    }
    unsigned long long size() override {
        ADD_FAILURE() << "size";
        return 0;
    }
    void trunc(unsigned long long) override { ADD_FAILURE() << "trunc"; }
    void flush() override { ADD_FAILURE() << "flush"; }
    const unsigned char* getmem(unsigned long long, unsigned long long&) override {
        ADD_FAILURE() << "getmem";
        return nullptr;
    }
};

TEST(StreamToStreamTest, EmptySourceIsNotReadAndItsTargetIsNotCalled) {
    LimitedStream source;
    UntouchedStream target;
    cmn::StreamToStream(source, target, 4);
    cmn::StreamToStream(source, target, 0);
    EXPECT_THAT(source.reads, IsEmpty());
}

TEST(StreamToStreamTest, ReportsAShortRead) {
    LimitedStream source(Counting(10));
    source.limit = 4;
    for (const auto answer : {0ULL, 3ULL, 5ULL, IStream::kPastEnd}) {
        source.answer = answer;
        MemStream target;
        EXPECT_EQ(FailureOf([&] { cmn::StreamToStream(source, target, 4); }),
                  "[StreamToStream] Can't read whole stream (4 from 10)");
        EXPECT_EQ(target.size(), 4U);
    }
}

TEST(StreamToStreamTest, ReportsAShortWrite) {
    MemStream source(Counting(10));
    LimitedStream target;
    target.limit = 8;
    target.answer = 1;
    EXPECT_EQ(FailureOf([&] { cmn::StreamToStream(source, target, 4); }),
              "[StreamToStream] Can't write whole stream (8 from 10)");
    target.limit = 0;
    EXPECT_EQ(FailureOf([&] { cmn::StreamToStream(source, target, 4); }),
              "[StreamToStream] Can't write whole stream (0 from 10)");
}

TEST(StreamToStreamTest, RejectsPiecesOfNoBytes) {
    MemStream source(Counting(1));
    MemStream target;
    EXPECT_THROW(cmn::StreamToStream(source, target, 0), std::runtime_error);
}

TEST(StreamToBinTest, ReadsARange) {
    MemStream stream(Counting(10));
    Bytes bytes(100, 0xFF);
    cmn::StreamToBin(stream, bytes, 2, 3);
    EXPECT_THAT(bytes, ElementsAre(3, 4, 5));
    cmn::StreamToBin(stream, bytes, 9, 1);
    EXPECT_THAT(bytes, ElementsAre(10));
    cmn::StreamToBin(stream, bytes, 50, 0);
    EXPECT_THAT(bytes, IsEmpty());
}

TEST(StreamToBinTest, ReportsAShortReadWithItsCounts) {
    MemStream stream(Counting(10));
    Bytes bytes;
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 8, 5); }),
              "[StreamToBin] Can't read whole stream (2 from 5)");
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 10, 5); }),
              "[StreamToBin] Can't read whole stream (0 from 5)");
    EXPECT_THROW(cmn::StreamToBin(stream, bytes, 10, 5), std::runtime_error);
}

TEST(StreamToBinTest, ReportsARangeThatNoMemoryCouldHold) {
    MemStream stream(Counting(10));
    Bytes bytes;
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 0, 1ULL << 62); }),
              "[StreamToBin] Can't read whole stream (10 from 4611686018427387904)");
    const auto max = std::numeric_limits<unsigned long long>::max();
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 4, max); }),
              "[StreamToBin] Can't read whole stream (6 from 18446744073709551615)");
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, max, max); }),
              "[StreamToBin] Can't read whole stream (0 from 18446744073709551615)");
}

TEST(StreamToBinTest, ReportsAStreamThatGivesLessThanItHolds) {
    LimitedStream stream(Counting(10));
    Bytes bytes;
    stream.limit = 0;
    for (const auto answer : {0ULL, 3ULL, IStream::kPastEnd}) {
        stream.answer = answer;
        EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 0, 5); }),
                  "[StreamToBin] Can't read whole stream (" +
                      std::to_string(answer == IStream::kPastEnd ? 0 : answer) + " from 5)");
    }
}

// Writes large numbers in groups of three digits everywhere in the program while it lives.
class GroupedNumbers : public std::numpunct<char> {
 public:
    GroupedNumbers() : std::numpunct<char>(1) {
        previous_ = std::locale::global(std::locale(std::locale::classic(), this));
    }
    ~GroupedNumbers() override { std::locale::global(previous_); }

 protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }

 private:
    std::locale previous_;
};

TEST(StreamErrorsTest, NumbersDoNotFollowTheGlobalLocale) {
    const GroupedNumbers grouped;
    std::ostringstream proof;
    proof << 1'000'000;
    ASSERT_EQ(proof.str(), "1.000.000");
    MemStream stream(Counting(10));
    Bytes bytes;
    unsigned long long size = 1;
    EXPECT_EQ(FailureOf([&] { stream.getmem(1'000'000, size); }), "Stream has no offset: 1000000");
    EXPECT_EQ(FailureOf([&] { cmn::StreamToBin(stream, bytes, 0, 1'000'000); }),
              "[StreamToBin] Can't read whole stream (10 from 1000000)");
}

TEST(BinToStreamTest, OwnsTheBytes) {
    auto bytes = Counting(3);
    const auto* address = bytes.data();
    const std::shared_ptr<MemStream> stream = cmn::BinToStream(std::move(bytes));
    unsigned long long size = 10;
    EXPECT_EQ(stream->getmem(0, size), address);
    EXPECT_EQ(size, 3U);
}

}  // namespace
