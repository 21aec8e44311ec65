#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <string>

#include "ScanRecords.h"

namespace host {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

TEST(ScanRecordsTest, HasAllKeysOfAClassifierWithoutSettings) {
    EXPECT_THAT(
        MakeScanRecord({.name = "Plain", .matcher = nullptr}, {.all = 3, .distinct = 2},
                       {.tv_sec = 1, .tv_nsec = 2}),
        UnorderedElementsAre(Pair("Name", "Plain"), Pair("SensitiveType", "0"), Pair("AmazonID", ""),
                             Pair("UploadedToServerDate", "0"), Pair("IsEncrypted", "0"),
                             Pair("IsPrimaryForEncryption", "0"), Pair("LastModifiedDate", "1000000002"),
                             Pair("EncryptDelayMilliseconds", "0"), Pair("ForceEncryptDate", "0"),
                             Pair("costUsd", "0"), Pair("MatchCount", "3"), Pair("UniqueCount", "2"),
                             Pair("CountUniqueEntries", "0"), Pair("IsOneRecordFile", "0")));
}

TEST(ScanRecordsTest, EachSettingHasItsKey) {
    const auto valueOf = [](const Classifier& classifier, const char* key) {
        return MakeScanRecord(classifier, {}, {}).at(key);
    };
    Classifier classifier;
    classifier.sensitiveType = true;
    EXPECT_EQ(valueOf(classifier, "SensitiveType"), "1");
    classifier = {};
    classifier.isEncrypted = true;
    EXPECT_EQ(valueOf(classifier, "IsEncrypted"), "1");
    EXPECT_EQ(valueOf(classifier, "IsPrimaryForEncryption"), "0");
    classifier = {};
    classifier.isPrimaryForEncryption = true;
    EXPECT_EQ(valueOf(classifier, "IsPrimaryForEncryption"), "1");
    EXPECT_EQ(valueOf(classifier, "IsEncrypted"), "0");
    classifier = {};
    classifier.countUniqueEntries = true;
    EXPECT_EQ(valueOf(classifier, "CountUniqueEntries"), "1");
    classifier = {};
    classifier.isOneRecordFile = true;
    EXPECT_EQ(valueOf(classifier, "IsOneRecordFile"), "1");
    classifier.encryptDelayMilliseconds = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(valueOf(classifier, "EncryptDelayMilliseconds"), "18446744073709551615");
}

TEST(ScanRecordsTest, CostIsTheShortestTextThatReadsBackTheSame) {
    for (const auto& [cost, text] : {std::pair(0.1, "0.1"),
                                     {150.0, "150"},
                                     {2.5, "2.5"},
                                     {200.25, "200.25"},
                                     {1.0 / 3, "0.3333333333333333"},
                                     {1e300, "1e+300"}}) {
        Classifier classifier;
        classifier.costUsd = cost;
        const auto written = MakeScanRecord(classifier, {}, {}).at("costUsd");
        EXPECT_EQ(written, text);
        EXPECT_EQ(std::stod(written), cost);
    }
}

TEST(ScanRecordsTest, CountsEndAtTheLargest32BitNumber) {
    const auto record = [](std::size_t all, std::size_t distinct) {
        return MakeScanRecord({}, {.all = all, .distinct = distinct}, {});
    };
    EXPECT_EQ(record(2'147'483'646, 1).at("MatchCount"), "2147483646");
    EXPECT_EQ(record(2'147'483'647, 1).at("MatchCount"), "2147483647");
    EXPECT_EQ(record(2'147'483'648, 1).at("MatchCount"), "2147483647");
    EXPECT_EQ(record(1, 2'147'483'648).at("UniqueCount"), "2147483647");
    EXPECT_EQ(record(std::numeric_limits<std::size_t>::max(), 7).at("MatchCount"), "2147483647");
    EXPECT_EQ(record(std::numeric_limits<std::size_t>::max(), 7).at("UniqueCount"), "7");
}

TEST(ScanRecordsTest, TimesAreExactNanoseconds) {
    const auto text = [](std::int64_t seconds, long nanoseconds) {
        return NanosecondsText({.tv_sec = seconds, .tv_nsec = nanoseconds});
    };
    EXPECT_EQ(text(1'700'000'000, 123'456'789), "1700000000123456789");
    EXPECT_EQ(text(1'700'000'000, 1), "1700000000000000001");
    EXPECT_EQ(text(1, 0), "1000000000");
    EXPECT_EQ(text(0, 0), "0");
    EXPECT_EQ(text(0, 70), "70");
}

TEST(ScanRecordsTest, TimesBefore1970AreNegative) {
    const auto text = [](std::int64_t seconds, long nanoseconds) {
        return NanosecondsText({.tv_sec = seconds, .tv_nsec = nanoseconds});
    };
    EXPECT_EQ(text(-1, 0), "-1000000000");
    EXPECT_EQ(text(-1, 999'999'999), "-1");
    EXPECT_EQ(text(-2, 500'000'000), "-1500000000");
}

TEST(ScanRecordsTest, TimesMayExceed64Bits) {
    const auto text = [](std::int64_t seconds, long nanoseconds) {
        return NanosecondsText({.tv_sec = seconds, .tv_nsec = nanoseconds});
    };
    EXPECT_EQ(text(10'000'000'000, 5), "10000000000000000005");
    EXPECT_EQ(text(std::numeric_limits<std::int64_t>::min(), 0), "-9223372036854775808000000000");
    EXPECT_EQ(text(std::numeric_limits<std::int64_t>::min(), 1), "-9223372036854775807999999999");
}

}  // namespace
}  // namespace host
