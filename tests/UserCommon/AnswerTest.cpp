#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/FakeDispatch.h"
#include "usercommon/Answer.h"

namespace {

using namespace std::chrono_literals;
using Text = std::shared_ptr<const std::string>;

class AnswerTest : public testing::Test {
 protected:
    ~AnswerTest() override { dispatch->close(); }

    const std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    const Text fallback = std::make_shared<std::string>("fallback");
    const Text given = std::make_shared<std::string>("given");
    const std::shared_ptr<cmn::Answer<Text>> answer =
        std::make_shared<cmn::Answer<Text>>(*dispatch, fallback);
};

TEST_F(AnswerTest, IsWaitedForNoLongerThanUntilItComes) {
    dispatch->deliver(30ms, [this] { answer->set(given); });
    EXPECT_EQ(answer->wait(100ms), given);
    EXPECT_EQ(dispatch->now(), 30ms);
    EXPECT_EQ(fallback.use_count(), 1);
}

TEST_F(AnswerTest, ThatComesLaterIsNotWaitedForNorKept) {
    dispatch->deliver(300ms, [this] { answer->set(given); });
    EXPECT_EQ(answer->wait(100ms), fallback);
    EXPECT_EQ(dispatch->now(), 100ms);
    dispatch->advance(1s);
    EXPECT_EQ(given.use_count(), 1);
    EXPECT_EQ(answer->wait(0ms), nullptr);
}

TEST_F(AnswerTest, ThatWillNotComeIsNotWaitedFor) {
    dispatch->deliver(10ms, [this] { answer->end(); });
    EXPECT_EQ(answer->wait(100ms), fallback);
    EXPECT_EQ(dispatch->now(), 10ms);
}

}  // namespace
