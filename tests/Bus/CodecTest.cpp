#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "BusLine.h"
#include "common/utf8.h"

// How values travel.
namespace {

using namespace cmn::bus;
using Any = std::variant<std::monostate, std::string, std::int32_t, std::vector<std::string>>;

class CodecTest : public fake::WithBus {
 protected:
    CodecTest() { EXPECT_TRUE(line.awaitReady()); }

    Message message() const { return line->newSignal("/a", "a.B", "C"); }
    static void seal(const Message& written) { EXPECT_GE(sd_bus_message_seal(written.raw(), 1, 0), 0); }

    template <typename... T>
    Message written(const T&... values) const {
        Message filled = message();
        EXPECT_TRUE(filled.append(values...));
        seal(filled);
        return filled;
    }
    template <typename T>
    T thereAndBack(const T& value) const {
        const auto read = written(value).template readOne<T>();
        EXPECT_TRUE(read) << (read ? "" : read.error().message);
        return read ? *read : T{};
    }
    // Reads it twice, as several may.
    template <typename T>
    void expectTheSame(const T& value, std::string_view signature) const {
        const Message filled = written(value);
        EXPECT_EQ(filled.signature(), signature);
        for (int i = 0; i < 2; ++i) {
            const auto read = filled.template readOne<T>();
            ASSERT_TRUE(read) << signature << ": " << read.error().message;
            EXPECT_EQ(*read, value) << signature;
        }
    }
    // What `T` says of a message with these values.
    template <typename T, typename... Values>
    std::string complaint(const Values&... values) const {
        const auto read = written(values...).template readOne<T>();
        return read ? "none" : read.error().message;
    }

    const fake::BusLine line{loop, bus.address()};
};

TEST_F(CodecTest, CarriesEveryNumberAtItsLimits) {
    const auto limits = [&]<typename T>(T /*type*/, const char* signature) {
        for (const T value : {T{}, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()}) {
            expectTheSame(value, signature);
        }
    };
    limits(std::uint8_t{}, "y");
    limits(std::int32_t{}, "i");
    limits(std::uint32_t{}, "u");
    limits(std::int64_t{}, "x");
    limits(std::uint64_t{}, "t");
    limits(double{}, "d");
    expectTheSame(true, "b");
    expectTheSame(false, "b");
}

TEST_F(CodecTest, CarriesTextsAndPaths) {
    expectTheSame(std::string(), "s");
    expectTheSame(std::string("plain \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80 \x01\x7f"), "s");
    expectTheSame(std::string(100'000, 'x'), "s");
    expectTheSame(ObjectPath{}, "o");
    expectTheSame(ObjectPath{"/a/b_1"}, "o");
    EXPECT_TRUE(ObjectPath{}.isNone());
    EXPECT_FALSE(ObjectPath{"/a"}.isNone());

    const Message text = written(std::string("view"));
    EXPECT_EQ(*text.readOne<std::string_view>(), "view");
    Message literal = message();
    ASSERT_TRUE(literal.append(static_cast<const char*>("literal")));
    seal(literal);
    EXPECT_EQ(*literal.readOne<std::string>(), "literal");
}

TEST_F(CodecTest, CarriesContainersInContainers) {
    expectTheSame(std::vector<std::string>{}, "as");
    expectTheSame(std::vector<bool>{true, false, true}, "ab");
    expectTheSame(std::vector<std::vector<ObjectPath>>{{}, {{"/a"}, {}}, {}}, "aao");
    expectTheSame(
        std::map<std::string, std::map<std::int32_t, double>>{{"a", {{1, 1.5}, {-2, 0.0}}}, {"b", {}}},
        "a{sa{id}}");
    expectTheSame(fake::Records{{}, {{"k", "v"}, {"l", ""}}, {}}, "aa{ss}");
    expectTheSame(std::vector<std::pair<std::string, std::uint64_t>>{{"b", 1}, {"a", 2}, {"b", 3}}, "a{st}");
    expectTheSame(
        std::tuple<std::string, std::tuple<std::uint8_t, std::vector<std::int64_t>>, bool>{
            "a", {7, {-1, 1}}, true},
        "(s(yax)b)");
    expectTheSame(
        std::vector<std::tuple<ObjectPath, std::map<std::string, Any>>>{
            {{"/a"}, {{"s", "text"}, {"i", 5}, {"as", std::vector<std::string>{"x", ""}}}}, {{}, {}}},
        "a(oa{sv})");
    EXPECT_EQ(thereAndBack(std::map<std::string, bool>{{"x", true}}),
              (std::map<std::string, bool>{{"x", true}}));
}

TEST_F(CodecTest, CarriesSeveralArguments) {
    const Message filled = written(std::string("a"), std::int32_t{1}, std::vector<std::uint8_t>{1, 2});
    EXPECT_EQ(filled.signature(), "siay");
    const auto read = filled.read<std::string, std::int32_t, std::vector<std::uint8_t>>();
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, (std::tuple{std::string("a"), 1, std::vector<std::uint8_t>{1, 2}}));
    EXPECT_FALSE((filled.read<std::string, std::int32_t>()));
    EXPECT_FALSE(filled.readOne<std::string>());
    const Message empty = written();
    EXPECT_EQ(empty.signature(), "");
    EXPECT_TRUE(empty.read<>());
}

TEST_F(CodecTest, CarriesVariantsOfKnownTypes) {
    EXPECT_EQ(thereAndBack(Variant<std::string>{"text"}).value, "text");
    EXPECT_EQ(thereAndBack(Variant<Variant<std::uint32_t>>{{7}}).value.value, 7U);
    EXPECT_EQ(thereAndBack(Variant<fake::Records>{{{{"a", "b"}}}}).value, (fake::Records{{{"a", "b"}}}));
    expectTheSame(Any("text"), "v");
    expectTheSame(Any(-5), "v");
    expectTheSame(Any(std::vector<std::string>{"x", "y"}), "v");
    EXPECT_EQ(complaint<Variant<std::string>>(Variant<std::int32_t>{1}),
              "Its arguments are \"v\" instead of \"v\"");
}

TEST_F(CodecTest, SkipsVariantsOfUnknownTypes) {
    const auto skipped = [&]<typename T>(const T& value) {
        const auto read = written(Variant<T>{value}, std::string("after")).template read<Any, std::string>();
        return read && std::get<0>(*read) == Any() && std::get<1>(*read) == "after";
    };
    EXPECT_TRUE(skipped(std::uint32_t{5}));
    EXPECT_TRUE(skipped(ObjectPath{"/a"}));
    EXPECT_TRUE(skipped(Variant<std::string>{"inner"}));
    EXPECT_TRUE(skipped(fake::Records{{{"a", "b"}}, {}}));
    EXPECT_TRUE(skipped(std::tuple<std::string, std::vector<double>>{"a", {1, 2}}));

    using Properties = std::map<std::string, Any>;
    const auto mixed =
        written(std::map<std::string, std::variant<std::monostate, std::string, fake::Records>>{
                    {"known", "text"}, {"unknown", fake::Records{{{"a", "b"}}}}, {"z", "last"}})
            .readOne<Properties>();
    ASSERT_TRUE(mixed);
    EXPECT_EQ(*mixed, (Properties{{"known", "text"}, {"unknown", {}}, {"z", "last"}}));
    Message none = message();
    EXPECT_FALSE(none.append(Any()));
}

TEST_F(CodecTest, SaysWhatAMessageHoldsInstead) {
    EXPECT_EQ(complaint<std::string>(std::int32_t{1}), "Its arguments are \"i\" instead of \"s\"");
    EXPECT_EQ(complaint<std::string>(), "Its arguments are \"\" instead of \"s\"");
    EXPECT_EQ(complaint<std::string>(ObjectPath{"/a"}), "Its arguments are \"o\" instead of \"s\"");
    EXPECT_EQ(complaint<std::string>(std::string(), std::string()),
              "Its arguments are \"ss\" instead of \"s\"");
    EXPECT_EQ(complaint<fake::Records>(std::map<std::string, std::string>{}),
              "Its arguments are \"a{ss}\" instead of \"aa{ss}\"");
    EXPECT_EQ(complaint<Any>(std::string()), "Its arguments are \"s\" instead of \"v\"");
    EXPECT_EQ(written(std::int32_t{1}).readOne<bool>().error().name, error::kInvalidArgs);
}

TEST_F(CodecTest, ReplacesWhatIsNoText) {
    const std::string replaced = "\xef\xbf\xbd";
    const std::map<std::string, std::string> texts{
        {"\xff", replaced},
        {"a\x80z", "a" + replaced + "z"},
        {"\xc0\x80", replaced + replaced},                 // a NUL in disguise
        {"\xed\xa0\x80", replaced + replaced + replaced},  // half a pair
        {"\xf4\x90\x80\x80", replaced + replaced + replaced + replaced},
        {"cut \xe2\x82", "cut " + replaced + replaced},
        {"\xef\xbf\xbe|\xef\xbf\xbf", replaced + "|" + replaced},  // they stand for no character
        {"\xef\xb7\x90|\xef\xb7\xaf", replaced + "|" + replaced},
        {"\xf0\x9f\xbf\xbe|\xf4\x8f\xbf\xbf", replaced + "|" + replaced},
        {"\xef\xb7\x8f|\xef\xb7\xb0|\xef\xbf\xbd", "\xef\xb7\x8f|\xef\xb7\xb0|" + replaced},
    };
    for (const auto& [text, expected] : texts) {
        EXPECT_EQ(thereAndBack(text), expected) << cmn::EscapeControls(text);
    }
    EXPECT_EQ(thereAndBack(std::map<std::string, std::string>{{"\xff", "\xfe"}}),
              (std::map<std::string, std::string>{{replaced, replaced}}));
}

TEST_F(CodecTest, TextsEndAtTheFirstNul) {
    EXPECT_EQ(thereAndBack(std::string("be\0hind", 7)), "be");
    EXPECT_EQ(thereAndBack(std::string("\0", 1)), "");
    EXPECT_EQ(thereAndBack(std::string("\xff\0z", 3)), "\xef\xbf\xbd");
}

TEST_F(CodecTest, TakesEveryCharacterThatThereIs) {
    const auto encoded = [](std::uint32_t code) {
        const auto byte = [](std::uint32_t bits) { return static_cast<char>(bits); };
        if (code < 0x80) {
            return std::string{byte(code)};
        }
        if (code < 0x800) {
            return std::string{byte(0xc0 | code >> 6), byte(0x80 | (code & 0x3f))};
        }
        if (code < 0x10000) {
            return std::string{byte(0xe0 | code >> 12), byte(0x80 | (code >> 6 & 0x3f)),
                               byte(0x80 | (code & 0x3f))};
        }
        return std::string{byte(0xf0 | code >> 18), byte(0x80 | (code >> 12 & 0x3f)),
                           byte(0x80 | (code >> 6 & 0x3f)), byte(0x80 | (code & 0x3f))};
    };
    constexpr std::uint32_t kBlock = 0x100;
    std::size_t replaced = 0;
    for (std::uint32_t block = 0; block < 0x110000; block += kBlock) {
        std::vector<std::string> texts;
        for (std::uint32_t code = std::max(block, 1U); code < block + kBlock; ++code) {
            texts.push_back(encoded(code));
        }
        const auto read = written(texts).readOne<std::vector<std::string>>();
        ASSERT_TRUE(read) << block;
        ASSERT_EQ(read->size(), texts.size());
        for (std::size_t i = 0; i < texts.size(); ++i) {
            replaced += (*read)[i] != texts[i] ? 1 : 0;
        }
    }
    // Halves of pairs, and what stands for no character: 32 and two in each of 17 planes.
    EXPECT_EQ(replaced, 2048U + 32U + 34U);
}

TEST_F(CodecTest, RefusesAMalformedPath) {
    for (const char* path : {"", "a", "/a/", "/a b"}) {
        Message refused = message();
        EXPECT_FALSE(refused.append(ObjectPath{path})) << path;
    }
}

TEST_F(CodecTest, CountsBytesAndWritesNothingThatMakesItTooLarge) {
    Message growing = message();
    std::size_t before = growing.bytes();
    EXPECT_EQ(before, 0U);
    const std::string mebibyte(1024 * 1024, 'x');
    for (int i = 0; i < 15; ++i) {
        ASSERT_TRUE(growing.append(mebibyte));
        EXPECT_GE(growing.bytes(), before + mebibyte.size());
        EXPECT_LE(growing.bytes(), before + mebibyte.size() + 64);
        before = growing.bytes();
    }
    EXPECT_FALSE(growing.append(mebibyte));
    EXPECT_EQ(growing.signature(), std::string(15, 's'));

    Message records = message();
    EXPECT_FALSE(records.append(fake::Records(100, {{"key", mebibyte}})));
    EXPECT_LE(records.bytes(), kLargestMessage + 2 * mebibyte.size()) << "it stops there";

    Message repaired = message();
    EXPECT_FALSE(repaired.append(std::string(kLargestMessage / 2, '\xff'))) << "three bytes for each";
}

TEST_F(CodecTest, CarriesTheSameOverABus) {
    using All = std::tuple<std::vector<std::tuple<std::string, double, ObjectPath>>,
                           std::map<std::string, Any>, std::vector<std::uint8_t>, std::uint64_t>;
    const All all{{{"\xc3\xa4", 0.1, {"/x"}}}, {{"v", -1}}, {1, 2, 3}, 1ULL << 63};
    const fake::BusLine server(loop, bus.address(), [](const Question& question) {
        const auto asked = question.message().readOne<All>();
        asked ? question.reply(*asked) : question.fail(asked.error());
    });
    ASSERT_TRUE(server.awaitReady());
    const auto reply = line->callAndWait(line.to(server->uniqueName(), "C", all), fake::Soon());
    ASSERT_TRUE(reply) << reply.error().message;
    EXPECT_EQ(*reply->readOne<All>(), all);
}

}  // namespace
