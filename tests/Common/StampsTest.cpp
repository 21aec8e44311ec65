#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <ctime>
#include <set>
#include <string>

#include "common/stamps.h"

namespace {

using testing::MatchesRegex;

TEST(MakeUUIDTest, IsARandomUuidInLowerCase) {
    for (int i = 0; i < 100; ++i) {
        EXPECT_THAT(cmn::MakeUUID(),
                    MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    }
}

TEST(MakeUUIDTest, DoesNotRepeatItself) {
    std::set<std::string> seen;
    for (int i = 0; i < 1'000; ++i)
        seen.insert(cmn::MakeUUID());
    EXPECT_EQ(seen.size(), 1'000U);
}

TEST(GetTimeStampTest, IsMicrosecondsSince1970) {
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    const auto before = now();
    const auto stamp = cmn::GetTimeStamp();
    const auto after = now();
    EXPECT_THAT(stamp, MatchesRegex("[1-9][0-9]*"));
    EXPECT_LE(before, std::stoll(stamp));
    EXPECT_GE(after, std::stoll(stamp));
}

TEST(GetCurrentDateTimeTest, IsMonthDayYearAndTheTimeInWholeSeconds) {
    // Not std::time: its coarser clock may be a second behind.
    const auto now = [] { return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()); };
    const auto before = now();
    const auto text = cmn::GetCurrentDateTime();
    const auto after = now();
    std::set<std::string> expected;
    for (auto time = before; time <= after; ++time) {
        std::array<char, 32> form{};
        std::tm utc{};
        ASSERT_NE(gmtime_r(&time, &utc), nullptr);
        std::strftime(form.data(), form.size(), "%m-%d-%Y %H:%M:%S", &utc);
        expected.insert(form.data());
    }
    EXPECT_THAT(expected, testing::Contains(text));
}

}  // namespace
