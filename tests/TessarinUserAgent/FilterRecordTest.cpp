#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <utility>

#include "useragent/FilterRecord.h"

namespace {

using useragent::FilterRecord;
using useragent::FilterValue;

constexpr auto kLargest32 = std::numeric_limits<std::int32_t>::max();
constexpr auto kSmallest32 = std::numeric_limits<std::int32_t>::min();
constexpr auto kLargest64 = std::numeric_limits<std::int64_t>::max();
constexpr auto kSmallest64 = std::numeric_limits<std::int64_t>::min();

FilterValue TextValue(const char* text) {
    return std::string(text);
}
FilterValue Number(std::int64_t number) {
    return number;
}

// A record of one value.
FilterRecord Holding(const FilterValue& value) {
    return FilterRecord(std::map<std::string, FilterValue>{{"key", value}});
}
bool BoolValue(const FilterValue& value) {
    return Holding(value).boolValue("key");
}
std::int32_t IntValue(const FilterValue& value) {
    return Holding(value).intValue("key");
}
std::int64_t IntegerValue(const FilterValue& value) {
    return Holding(value).integerValue("key");
}
double DoubleValue(const FilterValue& value) {
    return Holding(value).doubleValue("key");
}
std::string Description(const FilterValue& value) {
    return Holding(value).description("key");
}

TEST(BoolValueTest, TextIsTrueWhenItBeginsWithALetterOfYesOrTrueOrADigitThatIsNotZero) {
    for (const char* text : {"YES", "yes", "y", "Yup", "true", "TRUE", "t", "1", "9", "5 apples", "17"}) {
        EXPECT_TRUE(BoolValue(TextValue(text))) << text;
    }
    for (const char* text : {"", "NO", "no", "false", "0", "x1", "on", "."}) {
        EXPECT_FALSE(BoolValue(TextValue(text))) << text;
    }
}

TEST(BoolValueTest, LeadingBlanksASignAndZerosOfTextAreSkipped) {
    EXPECT_TRUE(BoolValue(TextValue(" \t\nYES")));
    EXPECT_TRUE(BoolValue(TextValue("+1")));
    EXPECT_TRUE(BoolValue(TextValue("-0002")));
    EXPECT_TRUE(BoolValue(TextValue("  007")));
    EXPECT_FALSE(BoolValue(TextValue("-000")));
    EXPECT_FALSE(BoolValue(TextValue("0 1")));
    EXPECT_FALSE(BoolValue(TextValue("0.5")));
    EXPECT_FALSE(BoolValue(TextValue("- 1")));
    EXPECT_FALSE(BoolValue(TextValue("--1")));
}

TEST(BoolValueTest, ANumberIsTrueUnlessItIsZero) {
    EXPECT_TRUE(BoolValue(Number(-1)));
    EXPECT_TRUE(BoolValue(Number(std::int64_t{1} << 40)));
    EXPECT_FALSE(BoolValue(Number(0)));
    EXPECT_TRUE(BoolValue(0.25));
    EXPECT_FALSE(BoolValue(0.0));
    EXPECT_TRUE(BoolValue(true));
    EXPECT_FALSE(BoolValue(false));
}

TEST(IntValueTest, TextIsReadUpToWhatIsNoDigit) {
    EXPECT_EQ(IntValue(TextValue("42")), 42);
    EXPECT_EQ(IntValue(TextValue("  42 apples")), 42);
    EXPECT_EQ(IntValue(TextValue("+7")), 7);
    EXPECT_EQ(IntValue(TextValue("-7.9")), -7);
    EXPECT_EQ(IntValue(TextValue("1e3")), 1);
    EXPECT_EQ(IntValue(TextValue("0x10")), 0);
    EXPECT_EQ(IntValue(TextValue("007")), 7);
}

TEST(IntValueTest, TextThatDoesNotBeginWithANumberIsZero) {
    for (const char* text : {"", " ", "abc", "- 5", "+-5", ".5", "YES"}) {
        EXPECT_EQ(IntValue(TextValue(text)), 0) << text;
        EXPECT_EQ(IntegerValue(TextValue(text)), 0) << text;
    }
}

TEST(IntValueTest, TextThatDoesNotFitIsTheNearestThatFits) {
    EXPECT_EQ(IntValue(TextValue("2147483647")), kLargest32);
    EXPECT_EQ(IntValue(TextValue("2147483648")), kLargest32);
    EXPECT_EQ(IntValue(TextValue("99999999999999999999999")), kLargest32);
    EXPECT_EQ(IntValue(TextValue("-2147483648")), kSmallest32);
    EXPECT_EQ(IntValue(TextValue("-2147483649")), kSmallest32);
}

TEST(IntValueTest, ANumberKeepsItsLowBitsAndAFractionIsCutOff) {
    EXPECT_EQ(IntValue(Number((std::int64_t{1} << 32) + 5)), 5);
    EXPECT_EQ(IntValue(-2.9), -2);
    EXPECT_EQ(IntValue(1e20), kLargest32);
    EXPECT_EQ(IntValue(std::nan("")), 0);
    EXPECT_EQ(IntValue(true), 1);
}

TEST(IntegerValueTest, HoldsSixtyFourBitsAndSaturatesBeyond) {
    EXPECT_EQ(IntegerValue(TextValue("9223372036854775807")), kLargest64);
    EXPECT_EQ(IntegerValue(TextValue("9223372036854775808")), kLargest64);
    EXPECT_EQ(IntegerValue(TextValue("-9223372036854775808")), kSmallest64);
    EXPECT_EQ(IntegerValue(TextValue("-9223372036854775809")), kSmallest64);
    EXPECT_EQ(IntegerValue(TextValue(" 1795219200000000000ns")), 1795219200000000000);
    EXPECT_EQ(IntegerValue(1e300), kLargest64);
    EXPECT_EQ(IntegerValue(-1e300), kSmallest64);
    EXPECT_EQ(IntegerValue(-1.5), -1);
    EXPECT_EQ(IntegerValue(Number(kSmallest64)), kSmallest64);
}

TEST(DoubleValueTest, TextIsReadAsADecimalNumberWhateverFollows) {
    EXPECT_EQ(DoubleValue(TextValue("0.5")), 0.5);
    EXPECT_EQ(DoubleValue(TextValue(" \n-2.25 dollars")), -2.25);
    EXPECT_EQ(DoubleValue(TextValue("+.5")), 0.5);
    EXPECT_EQ(DoubleValue(TextValue("5.")), 5);
    EXPECT_EQ(DoubleValue(TextValue("1e3")), 1000);
    EXPECT_EQ(DoubleValue(TextValue("1E-2x")), 0.01);
    EXPECT_EQ(DoubleValue(TextValue("1e")), 1);
    EXPECT_EQ(DoubleValue(TextValue("1e+")), 1);
    EXPECT_EQ(DoubleValue(TextValue("1,5")), 1);
    EXPECT_EQ(DoubleValue(TextValue("1.2.3")), 1.2);
}

TEST(DoubleValueTest, DecimalsOfAnyLengthAreReadAsTheNearestNumber) {
    std::mt19937 random(20'261'122);
    const auto digits = [&](std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += static_cast<char>('0' + random() % 10);
        }
        return text;
    };
    for (int round = 0; round < 10'000; ++round) {
        std::string text = (random() % 2 == 0 ? "-" : "") + digits(1 + random() % 18);
        if (random() % 4 != 0) {
            text += "." + digits(random() % 18);
        }
        if (random() % 8 == 0) {
            text += "e-" + digits(1);
        }
        const double expected = std::strtod(text.c_str(), nullptr);
        const double value = DoubleValue(TextValue(text.c_str()));
        ASSERT_EQ(value, expected) << text;
        ASSERT_EQ(std::signbit(value), std::signbit(expected)) << text;
    }
}

TEST(DoubleValueTest, WhatIsNoDecimalNumberIsZero) {
    for (const char* text : {"", ".", "-", "abc", "inf", "nan", "- 1", "e5", "$5"}) {
        EXPECT_EQ(DoubleValue(TextValue(text)), 0) << text;
    }
    EXPECT_EQ(DoubleValue(TextValue("0x1F")), 0);
}

TEST(DoubleValueTest, TextThatIsTooLargeIsInfinityAndTooSmallIsZero) {
    EXPECT_EQ(DoubleValue(TextValue("1e999")), HUGE_VAL);
    EXPECT_EQ(DoubleValue(TextValue("-1e999")), -HUGE_VAL);
    EXPECT_EQ(DoubleValue(TextValue("1e-999")), 0);
}

TEST(DoubleValueTest, NumbersAreConverted) {
    EXPECT_EQ(DoubleValue(Number(-3)), -3);
    EXPECT_EQ(DoubleValue(0.1), 0.1);
    EXPECT_EQ(DoubleValue(true), 1);
}

TEST(DescriptionTest, TextStaysAndNumbersAreDecimal) {
    EXPECT_EQ(Description(TextValue(" <b>as it is</b> ")), " <b>as it is</b> ");
    EXPECT_EQ(Description(Number(-12)), "-12");
    EXPECT_EQ(Description(0.5), "0.5");
    EXPECT_EQ(Description(3.0), "3");
    EXPECT_EQ(Description(0.1), "0.1");
    EXPECT_EQ(Description(true), "1");
    EXPECT_EQ(Description(false), "0");
}

TEST(FilterRecordTest, AKeyThatIsMissingReadsAsNothing) {
    const FilterRecord record(cmn::ScanRecord{{"Name", "Cards"}});
    EXPECT_EQ(record.description("Name"), "Cards");
    EXPECT_FALSE(record.boolValue("IsEncrypted"));
    EXPECT_EQ(record.intValue("MatchCount"), 0);
    EXPECT_EQ(record.integerValue("LastModifiedDate"), 0);
    EXPECT_EQ(record.doubleValue("costUsd"), 0);
    EXPECT_EQ(record.description("AmazonID"), "");
}

TEST(FilterRecordTest, ReadsNumbersAndTextAlike) {
    const FilterRecord numbers({{"MatchCount", std::int64_t{3}}, {"costUsd", 0.5}, {"SensitiveType", true}});
    const FilterRecord texts(
        cmn::ScanRecord{{"MatchCount", "3"}, {"costUsd", "0.5"}, {"SensitiveType", "1"}});
    for (const FilterRecord& record : {numbers, texts}) {
        EXPECT_EQ(record.intValue("MatchCount"), 3);
        EXPECT_EQ(record.doubleValue("costUsd"), 0.5);
        EXPECT_TRUE(record.boolValue("SensitiveType"));
    }
}

TEST(FilterRecordTest, GivesItsValuesAsTheyCame) {
    const std::map<std::string, useragent::FilterValue> values{
        {"MatchCount", std::int64_t{3}}, {"Name", "Cards"}, {"SensitiveType", true}, {"costUsd", 0.5}};
    EXPECT_THAT(FilterRecord(values).values(), testing::ElementsAreArray(values));
    EXPECT_THAT(FilterRecord(cmn::ScanRecord{{"MatchCount", "3"}}).values(),
                testing::ElementsAre(testing::Pair("MatchCount", useragent::FilterValue("3"))));
}

TEST(FilterRecordTest, FindsEachOfManyValuesAmongKeysThatAreAlike) {
    std::mt19937 random(7);
    const auto text = [&random](std::size_t longest) {
        std::string made(random() % (longest + 1), 'a');
        for (char& c : made) {
            c = "ab\0\1\2\3"[random() % 6];
        }
        return made;
    };
    for (int round = 0; round < 200; ++round) {
        std::map<std::string, FilterValue> values;
        for (auto count = random() % 20; count > 0; --count) {
            const FilterValue kinds[] = {text(40), -1 - static_cast<std::int64_t>(random()),
                                         static_cast<double>(random()) / 7, random() % 2 == 0};
            values[text(3)] = kinds[random() % 4];
        }
        const FilterRecord record(values);
        EXPECT_THAT(record.values(), testing::ElementsAreArray(values));
        for (const auto& [key, value] : values) {
            EXPECT_EQ(record.description(key), Description(value));
            EXPECT_EQ(record.doubleValue(key), DoubleValue(value));
        }
        EXPECT_EQ(record.description("abba"), "");
    }
}

TEST(FilterRecordTest, ACopyHasItsOwnValues) {
    FilterRecord copy;
    {
        const FilterRecord record(cmn::ScanRecord{{"Name", std::string(100, 'n')}, {"MatchCount", "3"}});
        copy = record;
    }
    const FilterRecord moved = std::move(copy);
    EXPECT_EQ(moved.description("Name"), std::string(100, 'n'));
    EXPECT_EQ(moved.intValue("MatchCount"), 3);
}

}  // namespace
