#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>

#include "common/json.h"
#include "doctor/DoctorCommand.h"
#include "support/Gate.h"
#include "support/WaitFor.h"

namespace ctl {
namespace {

using testing::HasSubstr;

// What the checks of this test find, and what became of it.
struct State {
    bool isMended = false;
    bool canMend = true;
    int mends = 0;
    fake::Gate gate;
    std::atomic<bool> hasPassed{false};
};
State* g_state = nullptr;

Finding Fine(const Machine&, cmn::bus::Deadline) {
    return Good("It is there");
}
Finding Unsure(const Machine&, cmn::bus::Deadline) {
    return {Verdict::warning, "It is\nslow", "wait"};
}
Finding Mendable(const Machine&, cmn::bus::Deadline) {
    if (g_state->isMended) {
        return Good("It is on");
    }
    return {Verdict::wrong, "It is off", "switch it on", [](const Machine&, cmn::bus::Deadline) {
                ++g_state->mends;
                if (!g_state->canMend) {
                    throw std::runtime_error("it is stuck");
                }
                g_state->isMended = true;
            }};
}
Finding Throwing(const Machine&, cmn::bus::Deadline) {
    throw std::runtime_error("no memory");
}
Finding Hanging(const Machine&, cmn::bus::Deadline) {
    g_state->gate.pass();
    g_state->hasPassed = true;
    return Good("late");
}

const std::vector<Check> kFine{{"fine", "Fine", Fine}, {"unsure", "Unsure", Unsure}};
const std::vector<Check> kMendable{{"fine", "Fine", Fine}, {"mendable", "Mendable", Mendable}};

class DoctorCommandTest : public testing::Test {
 protected:
    DoctorCommandTest() { g_state = &state; }
    ~DoctorCommandTest() override { g_state = nullptr; }

    int run(const DoctorOptions& options, const std::vector<Check>& checks, const std::string& input = "") {
        std::istringstream in(input);
        std::ostringstream out;
        const DoctorResult result =
            RunDoctor(options, std::make_shared<const Machine>(), in, out, std::chrono::seconds(20), checks);
        text = out.str();
        EXPECT_FALSE(result.leftBehind);
        return result.exitCode;
    }

    State state;
    std::string text;
};

TEST_F(DoctorCommandTest, SaysOneLineAboutEachCheck) {
    EXPECT_EQ(run({}, kFine), 0) << "a warning is not wrong";
    EXPECT_EQ(
        text,
        "[ok]             Fine: It is there\n[warning]        Unsure: It is\\x0aslow. To mend it: wait\n");
}

TEST_F(DoctorCommandTest, EndsWithAnErrorWhenSomethingIsWrong) {
    EXPECT_EQ(run({}, kMendable), 1);
    EXPECT_THAT(text, HasSubstr("[wrong]          Mendable: It is off. To mend it: switch it on\n"));
    EXPECT_EQ(state.mends, 0) << "nobody wanted that";
}

TEST_F(DoctorCommandTest, ProgramsGetAllAsJson) {
    EXPECT_EQ(run({.json = true}, {kMendable[0], kFine[1], kMendable[1]}), 1);
    const cmn::proto::detail::ParsedText parsed(text);
    const auto& root = parsed.root();
    EXPECT_FALSE(root["healthy"].GetBool());
    ASSERT_EQ(root["checks"].Size(), 3U);
    const auto& unsure = root["checks"][1];
    EXPECT_STREQ(unsure["id"].GetString(), "unsure");
    EXPECT_STREQ(unsure["title"].GetString(), "Unsure");
    EXPECT_STREQ(unsure["verdict"].GetString(), "warning");
    EXPECT_STREQ(unsure["text"].GetString(), "It is\\x0aslow");
    EXPECT_STREQ(unsure["remedy"].GetString(), "wait");
    EXPECT_FALSE(unsure["canFix"].GetBool());
    EXPECT_TRUE(root["checks"][2]["canFix"].GetBool());
}

TEST_F(DoctorCommandTest, MendsAfterAsking) {
    EXPECT_EQ(run({.fix = true}, kMendable, "y\n"), 0);
    EXPECT_EQ(state.mends, 1);
    EXPECT_THAT(text, HasSubstr("switch it on [y/N] "));
    EXPECT_THAT(text, testing::EndsWith("[ok]             Mendable: It is on\n"));
}

TEST_F(DoctorCommandTest, MendsNothingWithoutAYes) {
    for (const char* const answer : {"n\n", "\n", "", "yesterday\n"}) {
        EXPECT_EQ(run({.fix = true}, kMendable, answer), 1) << answer;
        EXPECT_EQ(state.mends, 0) << answer;
    }
}

TEST_F(DoctorCommandTest, UnattendedItAsksNobody) {
    EXPECT_EQ(run({.fix = true, .yes = true}, kMendable), 0);
    EXPECT_EQ(text.find("[y/N]"), std::string::npos);
    state.isMended = false;
    EXPECT_EQ(run({.json = true, .fix = true}, kMendable, "y\n"), 1) << "a program is not asked";
    EXPECT_EQ(run({.json = true, .fix = true, .yes = true}, kMendable), 0);
}

TEST_F(DoctorCommandTest, WhatCouldNotBeMendedSaysWhy) {
    state.canMend = false;
    EXPECT_EQ(run({.fix = true, .yes = true}, kMendable), 1);
    EXPECT_THAT(text, HasSubstr("It is off; it could not be mended: it is stuck. To mend it"));
}

TEST_F(DoctorCommandTest, ACheckThatFailsIsWrong) {
    EXPECT_EQ(run({}, {{"throwing", "Throwing", Throwing}, kFine[0]}), 1);
    EXPECT_EQ(text,
              "[wrong]          Throwing: It could not be looked at: no memory\n[ok]             Fine: It is "
              "there\n");
}

TEST_F(DoctorCommandTest, ACheckThatHangsIsLeftBehindAndTheOthersGoOn) {
    std::istringstream in;
    std::ostringstream out;
    const DoctorResult result =
        RunDoctor({}, std::make_shared<const Machine>(), in, out, std::chrono::milliseconds(50),
                  {{"hanging", "Hanging", Hanging}, kFine[0]});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.leftBehind);
    EXPECT_EQ(out.str(),
              "[wrong]          Hanging: It gave no answer within 50 ms. To mend it: see whether a file "
              "system or a "
              "message bus hangs\n[ok]             Fine: It is there\n");
    state.gate.open();
    EXPECT_TRUE(fake::WaitInHandler([&] { return state.hasPassed.load(); }));
}

}  // namespace
}  // namespace ctl
