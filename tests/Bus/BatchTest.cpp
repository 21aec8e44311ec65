#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "BusLine.h"
#include "linux_bus/Batch.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/ProcessMemory.h"
#include "support/WaitFor.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

// The deadline of calls that are not answered.
constexpr auto kShort = 200ms;

// Asked "Echo", it gives the number back; asked "Hold" it keeps the question; otherwise there is an error.
class EchoPeer {
 public:
    EchoPeer(const std::shared_ptr<Loop>& loop, const std::string& address) {
        Options options;
        options.address = address;
        connection = Connection::open(
            loop, options, {nullptr, nullptr, [this](const Question& question) { asked(question); }});
    }
    ~EchoPeer() { connection->close("the test has ended"); }

    std::string name() const { return connection->uniqueName(); }
    std::vector<Question> takeHeld() {
        const std::lock_guard lock(mutex_);
        return std::exchange(held_, {});
    }

    std::shared_ptr<Connection> connection;
    std::atomic<int> heldCount{0};

 private:
    void asked(const Question& question) {
        const auto number = question.message().readOne<std::int32_t>();
        if (question.message().member() == "Echo" && number) {
            question.reply(*number);
        } else if (question.message().member() == "Hold") {
            const std::lock_guard lock(mutex_);
            held_.push_back(question);
            ++heldCount;
        } else {
            question.fail({error::kFailed, "no"});
        }
    }

    std::mutex mutex_;
    std::vector<Question> held_;
};

class BatchTest : public testing::Test {
 protected:
    BatchTest() {
        Options options;
        options.address = bus.address();
        options.mostInFlight = 1000;
        auto opened = Connection::openAndWait(loop, options);
        EXPECT_TRUE(opened);
        connection = *opened;
        EXPECT_TRUE(
            fake::WaitFor([&] { return first.connection->isReady() && second.connection->isReady(); }));
    }
    ~BatchTest() override {
        connection->close("the test has ended");
        loop->stop();
    }

    static Query<std::int32_t> query(const std::string& destination, const char* member,
                                     std::int32_t number = 0) {
        return {destination, "/a", "a.B", member, [number](Message& call) { return call.append(number); }};
    }

    fake::PrivateBus bus;
    std::shared_ptr<Loop> loop = std::make_shared<Loop>();
    EchoPeer first{loop, bus.address()};
    EchoPeer second{loop, bus.address()};
    std::shared_ptr<Connection> connection;
};

TEST_F(BatchTest, GivesEachCallItsOwnAnswer) {
    constexpr std::int32_t kCalls = 1000;  // far more than are on their way together
    Batch batch(connection, Clock::now() + 20s);
    std::vector<Batch::Answer<std::int32_t>> answers;
    for (std::int32_t i = 0; i < kCalls; ++i) {
        answers.push_back(batch.ask(query((i % 2 == 0 ? first : second).name(), "Echo", i)));
    }
    EXPECT_TRUE(batch.wait());
    for (std::int32_t i = 0; i < kCalls; ++i) {
        ASSERT_TRUE(answers[static_cast<std::size_t>(i)].arrived());
        ASSERT_EQ(answers[static_cast<std::size_t>(i)].read().valueOr(-1), i);
    }
    EXPECT_TRUE(batch.silent().empty());
    EXPECT_TRUE(batch.absent().empty());
}

TEST_F(BatchTest, NamesThoseWhoAnsweredNothing) {
    Batch batch(connection, Clock::now() + kShort);
    const auto echoed = batch.ask(query(first.name(), "Echo", 7));
    const auto held = batch.ask(query(second.name(), "Hold"));
    batch.ask(query(second.name(), "Hold"));
    EXPECT_FALSE(batch.wait());
    EXPECT_EQ(echoed.read().valueOr(-1), 7);
    EXPECT_FALSE(held.arrived());
    EXPECT_TRUE(held.read().error().is(error::kTimeout));
    EXPECT_EQ(batch.silent(), std::vector{second.name()});
}

TEST_F(BatchTest, WhoAnswersOneCallIsNotSilent) {
    Batch batch(connection, Clock::now() + kShort);
    batch.ask(query(first.name(), "Hold"));
    const auto refused = batch.ask(query(first.name(), "Else"));
    EXPECT_FALSE(batch.wait());
    EXPECT_TRUE(refused.arrived()) << "an error is an answer";
    EXPECT_TRUE(refused.read().error().is(error::kFailed));
    EXPECT_TRUE(batch.silent().empty());
}

TEST_F(BatchTest, NamesThatNobodyHasAreKnown) {
    Batch batch(connection, Clock::now() + 20s);
    batch.ask(query(":1.4711", "Echo"));
    batch.ask(query("a.b.Nobody", "Echo"));
    EXPECT_TRUE(batch.wait());
    EXPECT_EQ(batch.absent(), (std::vector<std::string>{":1.4711", "a.b.Nobody"}));
    EXPECT_TRUE(batch.silent().empty());
}

TEST_F(BatchTest, SendsNoMoreThanCanBeOnTheirWay) {
    constexpr int kMostOnTheirWay = 128;
    Batch batch(connection, Clock::now() + kShort);
    for (int i = 0; i < 2 * kMostOnTheirWay; ++i) {
        batch.ask(query(first.name(), "Hold"));
    }
    EXPECT_FALSE(batch.wait());
    EXPECT_TRUE(fake::WaitFor([&] { return first.heldCount >= kMostOnTheirWay; }));
    // The bus itself allows this connection no more of them: somebody else asks whether more have come.
    EXPECT_TRUE(AskAndWait(second.connection, query(first.name(), "Echo"), Clock::now() + 20s));
    EXPECT_EQ(first.heldCount, kMostOnTheirWay);
}

TEST_F(BatchTest, EndsWithItsConnection) {
    Batch batch(connection, Clock::now() + 100s);
    const auto held = batch.ask(query(first.name(), "Hold"));
    std::thread closing([&] {
        EXPECT_TRUE(fake::WaitFor([&] { return first.heldCount == 1; }));
        connection->close("enough");
    });
    const auto start = Clock::now();
    EXPECT_TRUE(batch.wait()) << "each call ended";
    EXPECT_LT(Clock::now() - start, 50s);
    closing.join();
    EXPECT_TRUE(held.read().error().is(error::kDisconnected));
    EXPECT_TRUE(batch.silent().empty()) << "that nobody answered says nothing then";
}

TEST_F(BatchTest, AnswersThatComeLaterChangeNothing) {
    Batch::Answer<std::int32_t> late;
    {
        Batch batch(connection, Clock::now() + kShort);
        late = batch.ask(query(first.name(), "Hold"));
        ASSERT_TRUE(fake::WaitFor([&] { return first.heldCount == 1; }));
        EXPECT_FALSE(batch.wait());
    }
    for (const Question& question : first.takeHeld()) {
        question.reply(std::int32_t{5});
    }
    EXPECT_TRUE(AskAndWait(connection, query(first.name(), "Echo"), Clock::now() + 20s));
    EXPECT_FALSE(late.arrived());
}

TEST_F(BatchTest, AnAnswerOfAnotherShapeIsAnError) {
    Query<std::string> wrong{first.name(), "/a", "a.B", "Echo",
                             [](Message& call) { return call.append(std::int32_t{1}); }};
    const auto answer = AskAndWait(connection, wrong, Clock::now() + 20s);
    ASSERT_FALSE(answer);
    EXPECT_TRUE(answer.error().is(error::kInvalidArgs));
}

TEST_F(BatchTest, LargeAnswersAreErrorsThatTheLogTellsAndNothingIsKeptOfThem) {
    fake::LogCapture log;
    fake::ChildProcess peer({BUS_PEER, "answer", bus.address()});
    const std::string name = peer.readLine().value_or("");
    const auto records = [&](std::int32_t mebibytes) {
        return Query<fake::Records>{name, "/a", "a.B", "Records",
                                    [mebibytes](Message& call) { return call.append(mebibytes); }};
    };
    fake::ForgetPeak(getpid());
    const std::size_t before = fake::MemoryOf(getpid()).now;
    const auto begun = Clock::now();
    const Deadline late = begun + 10min;
    Batch batch(connection, late);
    std::vector<Batch::Answer<fake::Records>> answers;
    for (int i = 0; i < 5; ++i) {
        answers.push_back(batch.ask(records(30)));
    }
    const auto small = batch.ask(query(first.name(), "Echo", 7));
    EXPECT_TRUE(batch.wait());
    for (const auto& answer : answers) {
        EXPECT_TRUE(answer.arrived());
        ASSERT_FALSE(answer.read());
        EXPECT_EQ(answer.read().error().name, error::kLimitsExceeded);
    }
    EXPECT_EQ(small.read().valueOr(-1), 7);
    EXPECT_TRUE(batch.silent().empty());
    const auto minutes = std::chrono::floor<std::chrono::minutes>(Clock::now() - begun).count();
    EXPECT_GE(log.count(name + " is not read: it is too large"), 1U);
    EXPECT_LE(log.count(name + " is not read: it is too large"), 1U + static_cast<std::size_t>(minutes))
        << "one a minute, not one for each of them";
    if (fake::kMeasuresMemory) {
        EXPECT_LT(fake::MemoryOf(getpid()).peak, before + 100 * 1024) << "two of them at a time, at most";
    }

    // Who wants more says so.
    EXPECT_FALSE(AskAndWait(connection, records(2), late));
    Query<fake::Records> wanted = records(2);
    wanted.read = [](const Message& answer) { return answer.readOne<fake::Records>(3 * 1024 * 1024); };
    const auto answer = AskAndWait(connection, wanted, late);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->size(), 2048U);
}

TEST(HalfWay, IsTheMiddleOfTheTimeLeftAndNowWhenThereIsNone) {
    const Deadline deadline = Clock::now() + 100s;
    EXPECT_LE(deadline - HalfWayTo(deadline), 50s);
    EXPECT_GT(deadline - HalfWayTo(deadline), 40s);
    const Deadline past = Clock::now() - 1s;
    EXPECT_EQ(HalfWayTo(past), past);
}

}  // namespace
