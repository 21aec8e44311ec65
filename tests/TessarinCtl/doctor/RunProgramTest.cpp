#include <gtest/gtest.h>

#include <thread>

#include "doctor/RunProgram.h"

namespace ctl {
namespace {

cmn::bus::Deadline In(std::chrono::milliseconds time) {
    return cmn::bus::Clock::now() + time;
}

constexpr std::chrono::seconds kLong{20};

TEST(RunProgramTest, TellsWhetherAProgramSucceeded) {
    EXPECT_TRUE(RunProgram({"true"}, In(kLong)));
    EXPECT_FALSE(RunProgram({"false"}, In(kLong)));
    EXPECT_FALSE(RunProgram({"no-such-program-anywhere"}, In(kLong)));
    EXPECT_FALSE(RunProgram({}, In(kLong)));
    EXPECT_TRUE(RunProgram({"sh", "-c", "test \"$1\" = 'a b' && kill -0 $$", "sh", "a b"}, In(kLong)));
    EXPECT_FALSE(RunProgram({"sh", "-c", "kill -TERM $$"}, In(kLong)));
}

TEST(RunProgramTest, OneThatTakesTooLongIsEnded) {
    const auto begin = cmn::bus::Clock::now();
    EXPECT_FALSE(RunProgram({"sleep", "1000"}, In(std::chrono::milliseconds(50))));
    EXPECT_LT(cmn::bus::Clock::now() - begin, kLong);
}

TEST(RunProgramTest, OutputIsTakenByNobodyAndHoldsNothingUp) {
    EXPECT_TRUE(
        RunProgram({"sh", "-c", "yes | head -c 1000000; yes | head -c 1000000 >&2; ! read line"}, In(kLong)));
}

TEST(RunProgramTest, AnyThreadMay) {
    bool succeeded = false;
    std::thread([&] { succeeded = RunProgram({"true"}, In(kLong)); }).join();
    EXPECT_TRUE(succeeded);
}

}  // namespace
}  // namespace ctl
