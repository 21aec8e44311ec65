#include <gtest/gtest.h>

#include <algorithm>

#include "BusLine.h"
#include "support/LogCapture.h"

// Who may end what, and where.
namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

class LifetimeTest : public fake::WithBus {
 protected:
    // A connection that answers with an echo, and hears signals of its own.
    struct Both {
        Both(const std::shared_ptr<Loop>& loop, const std::string& address)
            : server(loop, address, fake::Echo), client(loop, address) {
            EXPECT_TRUE(server.awaitReady() && client.awaitReady());
        }
        Message echo() const { return client.to(server->uniqueName(), "Echo", std::string("text")); }
        Message silent() const { return client.to(server->uniqueName(), "Echo"); }

        fake::BusLine server;
        fake::BusLine client;
    };
    static Message signalOf(const fake::BusLine& line) { return line->newSignal("/a", "a.B", "C"); }
    static bool isGone(const std::weak_ptr<void>& object) {
        return fake::WaitFor([&] { return object.expired(); });
    }
};

TEST_F(LifetimeTest, AStoppedLoopLeavesItsConnectionsToTheirOwners) {
    Loop warm;  // what a first loop opens for good
    warm.stop();
    const std::size_t descriptors = fake::OpenDescriptors();
    for (int i = 0; i < 10; ++i) {
        auto own = std::make_shared<Loop>();
        const Both both(own, bus.address());
        const auto heard = both.client->subscribe("type='signal'", [](const Message& /*signal*/) {});
        const fake::Answer answer;
        both.client->call(both.echo(), fake::Soon(), answer.taker());
        own->stop();
        const std::size_t told = answer.count();
        both.client->call(both.echo(), Clock::now(), answer.taker());
        EXPECT_EQ(answer.count(), told);
        if (i % 2 == 0) {
            both.client->close("because");
            EXPECT_FALSE(both.client->isReady());
        }
        EXPECT_EQ(both.client.heard->lost, 0);
    }
    EXPECT_EQ(fake::OpenDescriptors(), descriptors);
}

TEST_F(LifetimeTest, ConnectionsAreOpenedOnAStoppedLoopInVain) {
    loop->stop();
    const fake::BusLine line(loop, bus.address());
    EXPECT_FALSE(line->isReady());
    EXPECT_EQ(
        line->callAndWait(line->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()).error().name,
        error::kDisconnected);
}

TEST_F(LifetimeTest, TheLastConnectionAndTheLoopMayEndOnTheLoopsOwnThread) {
    Loop warm;
    warm.stop();
    const std::size_t descriptors = fake::OpenDescriptors();
    for (int i = 0; i < 10; ++i) {
        auto own = std::make_shared<Loop>();
        auto both = std::make_shared<Both>(own, bus.address());
        const std::weak_ptr<Loop> loopLives = own;
        const std::weak_ptr<Both> bothLives = both;
        Loop& last = *own;
        std::promise<void> leave;
        last.post([both = std::move(both), own = std::move(own), left = leave.get_future().share()] {
            left.wait();
        });
        leave.set_value();
        EXPECT_TRUE(isGone(bothLives));
        EXPECT_TRUE(isGone(loopLives));
    }
    EXPECT_TRUE(fake::WaitFor([&] { return fake::OpenDescriptors() <= descriptors; }))
        << fake::OpenDescriptors() << " instead of " << descriptors;
}

TEST_F(LifetimeTest, ALoopMayBeStoppedOnItsOwnThread) {
    auto own = std::make_shared<Loop>();
    const Both both(own, bus.address());
    std::promise<void> stopped;
    own->post([&] {
        own->stop();
        stopped.set_value();
    });
    stopped.get_future().wait();
    std::atomic<bool> ran{false};
    own->post([&] { ran = true; });
    own->stop();
    both.client->close("because");
    EXPECT_FALSE(ran);
}

TEST_F(LifetimeTest, ALoopRunsWhatWasPostedBeforeItEnds) {
    Loop own;
    std::vector<int> ran;
    for (int i = 0; i < 100; ++i) {
        own.post([&ran, i] { ran.push_back(i); });
    }
    own.post([] { throw std::runtime_error("a task of a test"); });
    own.post([&ran] { ran.push_back(100); });
    own.stop();
    ASSERT_EQ(ran.size(), 101U);
    EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
    const auto task = std::make_shared<int>();
    own.post([task] {});
    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(LifetimeTest, AClosedConnectionLeavesTheBusAtOnce) {
    const Both both(loop, bus.address());
    const std::string name = both.client->uniqueName();
    both.client->close("because");
    EXPECT_TRUE(fake::WaitFor([&] {
        return !both.server->callAndWait(
            both.server->makeCall(kBusName, kBusPath, kBusName, "GetNameOwner", name), fake::Soon());
    }));
}

// A handler that owns the connection which is to call it.
class OwnedByItsCallTest : public LifetimeTest {
 protected:
    ~OwnedByItsCallTest() override {
        EXPECT_TRUE(isGone(lives));
        EXPECT_EQ(calls, expectedCalls);
    }
    // The connection lives by its call alone.
    Connection::CallId leaveTo(const Message& message, Deadline deadline) {
        auto owner = std::move(both->client.connection);
        lives = owner;
        return owner->call(message, deadline, [this, owner](const auto& /*reply*/) { ++calls; });
    }

    std::unique_ptr<Both> both = std::make_unique<Both>(loop, bus.address());
    std::weak_ptr<Connection> lives;
    std::atomic<int> calls{0};
    int expectedCalls = 1;
};

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilTheAnswer) {
    leaveTo(both->echo(), fake::Soon());
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilTheDeadline) {
    const fake::BusLine keeper(
        loop, bus.address(),
        [kept = std::vector<Question>()](const Question& question) mutable { kept.push_back(question); });
    ASSERT_TRUE(keeper.awaitReady());
    leaveTo(both->client.to(keeper->uniqueName(), "C"), Clock::now() + 100ms);
    EXPECT_TRUE(isGone(lives));
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilItsCallIsRefused) {
    leaveTo(Message(), fake::Soon());
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilItIsClosed) {
    bus.freeze();
    leaveTo(both->echo(), fake::Soon());
    lives.lock()->close("because");
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilItIsLost) {
    bus.freeze();
    leaveTo(both->echo(), fake::Soon());
    bus.kill();
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilItsCallIsCancelled) {
    bus.freeze();
    expectedCalls = 0;
    const auto id = leaveTo(both->echo(), fake::Soon());
    lives.lock()->cancel(id);
}

TEST_F(OwnedByItsCallTest, AConnectionLivesUntilAllItsCallsAreCancelled) {
    bus.freeze();
    expectedCalls = 0;
    leaveTo(both->echo(), fake::Soon());
    lives.lock()->cancelAll();
}

TEST_F(LifetimeTest, ASubscriptionMayEndInItsOwnHandler) {
    const Both both(loop, bus.address());
    auto subscription = std::make_shared<std::shared_ptr<Subscription>>();
    const auto data = std::make_shared<int>(7);
    std::atomic<int> heard{0};
    std::promise<void> installed;
    *subscription = both.client->subscribe(
        "type='signal',interface='a.B'",
        [&heard, subscription, data](const Message& /*signal*/) {
            subscription->reset();
            heard += *data;  // what the handler owns lives on
        },
        [&](const auto& /*error*/) { installed.set_value(); });
    installed.get_future().wait();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(both.server->send(signalOf(both.server)));
    }
    EXPECT_TRUE(fake::WaitFor([&] { return heard > 0; }));
    EXPECT_TRUE(both.client->callAndWait(both.echo(), fake::Soon()));
    EXPECT_EQ(heard, 7);
    EXPECT_TRUE(fake::WaitFor([&] { return data.use_count() == 1; }));
}

TEST_F(LifetimeTest, ASubscriptionMayEndInTheHandlerOfItsRule) {
    const Both both(loop, bus.address());
    std::promise<void> assigned;
    std::promise<void> ended;
    std::shared_ptr<Subscription> subscription;
    subscription = both.client->subscribe(
        "type='signal',interface='a.B'", [](const Message& /*signal*/) { ADD_FAILURE() << "heard"; },
        [&](const auto& /*error*/) {
            assigned.get_future().wait();
            subscription.reset();
            ended.set_value();
        });
    assigned.set_value();
    ended.get_future().wait();
    EXPECT_TRUE(both.server->send(signalOf(both.server)));
    EXPECT_TRUE(
        both.server->callAndWait(both.server->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()));
    EXPECT_TRUE(both.client->callAndWait(both.echo(), fake::Soon()));
}

// Ends the connection of `client` within one of its own handlers, in either way.
class EndsInHandlerTest : public LifetimeTest, public testing::WithParamInterface<bool> {
 protected:
    // Once the test has done what it was to do before.
    void end() {
        begun.get_future().wait();
        GetParam() ? client.connection->close("because") : client.connection.reset();
        ended.set_value();
    }
    void awaitEnd() {
        begun.set_value();
        ASSERT_EQ(ended.get_future().wait_for(30s), std::future_status::ready);
        ASSERT_TRUE(fake::Settle(*loop));
        EXPECT_FALSE(client.connection && client->isReady());
        EXPECT_EQ(client.heard->lost, 0);
    }

    std::promise<void> begun;
    std::promise<void> ended;
    std::function<void()> asked = [] {};
    const fake::BusLine server{loop, bus.address(), fake::Echo};
    fake::BusLine client{loop, bus.address(), [this](const Question& question) {
                             asked();
                             question.reply();
                         }};
};

TEST_P(EndsInHandlerTest, OfAnAnswer) {
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    const fake::Answer other;
    client->call(client.to(server->uniqueName(), "Echo", std::string("text")), fake::Soon(),
                 [this](const auto& /*reply*/) { end(); });
    client->call(client.to(server->uniqueName(), "Echo", std::string("text")), fake::Soon(), other.taker());
    awaitEnd();
    EXPECT_EQ(other.count(), GetParam() ? 1U : 0U);
}

TEST_P(EndsInHandlerTest, OfADeadline) {
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    bus.freeze();
    const fake::Answer other;
    const auto deadline = Clock::now() + 50ms;
    client->call(client.to(server->uniqueName(), "Echo"), deadline, [this](const auto& /*reply*/) { end(); });
    client->call(client.to(server->uniqueName(), "Echo"), deadline, other.taker());
    awaitEnd();
    EXPECT_EQ(other.count(), GetParam() ? 1U : 0U);
}

TEST_P(EndsInHandlerTest, OfAQuestion) {
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    asked = [this] { end(); };
    const fake::Answer answer;
    server->call(server.to(client->uniqueName(), "C"), fake::Soon(), answer.taker());
    awaitEnd();
    EXPECT_EQ(answer.error(), error::kNoReply);
}

TEST_P(EndsInHandlerTest, OfASignal) {
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    std::atomic<int> heard{0};
    std::promise<void> installed;
    const auto handler = [&](const Message& /*signal*/) {
        if (++heard == 1) {
            end();
        }
    };
    const auto first = client->subscribe("type='signal',interface='a.B'", handler);
    const auto second = client->subscribe("type='signal',interface='a.B'", handler,
                                          [&](const auto& /*error*/) { installed.set_value(); });
    installed.get_future().wait();
    EXPECT_TRUE(server->send(signalOf(server)));
    awaitEnd();
    EXPECT_EQ(heard, 1);
}

TEST_P(EndsInHandlerTest, OfTheStart) {
    std::promise<void> assigned;
    std::shared_ptr<Connection> connection;
    int lost = 0;
    connection = Connection::open(loop, Options{.address = bus.address()},
                                  {[&] {
                                       assigned.get_future().wait();
                                       GetParam() ? connection->close("because") : connection.reset();
                                       ended.set_value();
                                   },
                                   [&](const std::string& /*why*/) { ++lost; }, nullptr});
    assigned.set_value();
    ASSERT_EQ(ended.get_future().wait_for(30s), std::future_status::ready);
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(lost, 0);
}

TEST_P(EndsInHandlerTest, OfTheLoss) {
    std::promise<void> assigned;
    std::shared_ptr<Connection> connection;
    int lost = 0;
    const fake::Answer answer;
    std::promise<void> ready;
    connection = Connection::open(loop, Options{.address = bus.address()},
                                  {[&] { ready.set_value(); },
                                   [&](const std::string& /*why*/) {
                                       ++lost;
                                       GetParam() ? connection->close("because") : connection.reset();
                                       ended.set_value();
                                   },
                                   nullptr});
    ready.get_future().wait();
    bus.freeze();
    connection->askBus("GetId", answer.taker());
    bus.kill();
    ASSERT_EQ(ended.get_future().wait_for(30s), std::future_status::ready);
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(answer.error(), error::kDisconnected);
    EXPECT_EQ(answer.count(), 1U);
    EXPECT_EQ(lost, 1);
}

TEST_P(EndsInHandlerTest, OfAFailureWhileOthersWaitToBeTold) {
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    bus.freeze();
    const fake::Answer other;
    client->call(client.to(server->uniqueName(), "Echo"), fake::Soon(),
                 [this](const auto& /*reply*/) { end(); });
    client->call(client.to(server->uniqueName(), "Echo"), fake::Soon(), other.taker());
    bus.kill();
    begun.set_value();
    ASSERT_EQ(ended.get_future().wait_for(30s), std::future_status::ready);
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(other.count(), GetParam() ? 1U : 0U);
    EXPECT_EQ(client.heard->lost, GetParam() ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(ByClosingAndByLettingGo, EndsInHandlerTest, testing::Bool(),
                         [](const auto& one) { return one.param ? "Closes" : "LetsGo"; });

}  // namespace
