#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "usercommon/XPCClient.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// Writes down what the base does to it.
class RecordingClient : public cmn::XPCClient {
 public:
    using XPCClient::XPCClient;

    void willResumeConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        const auto& used = static_cast<const fake::XPCConnection&>(*connection);
        steps.emplace_back(used.resumed() ? "resumed before will-resume" : "will-resume");
        handlersWereSet = used.hasHandlers();
        connectionWasStored = this->connection() == connection;
    }
    void didResumeConnection(const std::shared_ptr<cmn::XPCConnection>& connection) override {
        const auto& used = static_cast<const fake::XPCConnection&>(*connection);
        steps.emplace_back(used.resumed() ? "did-resume" : "did-resume before resume");
        queue = dispatch() ? static_cast<const fake::Dispatch&>(*dispatch()).currentQueue() : queue;
    }
    void connectionDidInvalidate() override {
        steps.emplace_back("invalidated");
        if (comesBack) {
            reconnect(1);
        }
    }
    void connectionDidInterrupt() override { steps.emplace_back("interrupted"); }

    std::vector<std::string> steps;
    bool handlersWereSet = false;
    bool connectionWasStored = false;
    bool comesBack = false;
    fake::Dispatch::Queue queue = fake::Dispatch::Queue::main;
};

class XPCClientTest : public testing::Test {
 protected:
    void TearDown() override { dispatch->close(); }

    std::shared_ptr<RecordingClient> makeClient(bool privileged = true) {
        return std::make_shared<RecordingClient>(dispatch, transport, "com.example.Service", privileged);
    }
    std::shared_ptr<RecordingClient> connectedClient(bool privileged = true) {
        auto client = makeClient(privileged);
        client->connect();
        return client;
    }

    std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>();
    std::shared_ptr<fake::XPCTransport> transport = std::make_shared<fake::XPCTransport>(dispatch);
};

TEST_F(XPCClientTest, DoesNotConnectByItself) {
    const auto client = makeClient();
    dispatch->advance(1h);
    EXPECT_EQ(transport->connectionsCreated(), 0);
    EXPECT_EQ(client->connection(), nullptr);
}

TEST_F(XPCClientTest, ConnectsWithOption4096WhenTheServiceIsPrivileged) {
    const auto client = connectedClient(true);
    EXPECT_TRUE(client->isServicePrivileged());
    EXPECT_EQ(static_cast<unsigned>(transport->lastConnection()->options), 4096u);
}

TEST_F(XPCClientTest, ConnectsWithOption0WhenTheServiceIsNotPrivileged) {
    const auto client = connectedClient(false);
    EXPECT_FALSE(client->isServicePrivileged());
    EXPECT_EQ(static_cast<unsigned>(transport->lastConnection()->options), 0u);
}

TEST_F(XPCClientTest, ConnectsToTheNameSetLast) {
    const auto client = makeClient();
    EXPECT_EQ(client->machServiceName(), "com.example.Service");
    client->setMachServiceName("com.example.Other");
    client->connect();
    EXPECT_EQ(client->machServiceName(), "com.example.Other");
    EXPECT_EQ(transport->lastConnection()->machServiceName, "com.example.Other");
}

TEST_F(XPCClientTest, RunsTheHooksAroundResumeOncePerConnect) {
    const auto client = connectedClient();
    EXPECT_THAT(client->steps, ElementsAre("will-resume", "did-resume"));
    client->connect();
    EXPECT_THAT(client->steps, ElementsAre("will-resume", "did-resume", "will-resume", "did-resume"));
}

TEST_F(XPCClientTest, HasStoredTheConnectionAndSetBothHandlersBeforeItIsResumed) {
    const auto client = connectedClient();
    EXPECT_TRUE(client->connectionWasStored);
    EXPECT_TRUE(client->handlersWereSet);
}

TEST_F(XPCClientTest, ReplacesAConnectionWithoutInvalidatingIt) {
    const auto client = connectedClient();
    const auto first = transport->lastConnection();
    client->connect();
    EXPECT_NE(client->connection(), first);
    EXPECT_FALSE(first->invalidated());
}

TEST_F(XPCClientTest, ADroppedConnectionIsDestroyedWhenItIsReplaced) {
    const auto client = connectedClient();
    const std::weak_ptr<fake::XPCConnection> first = transport->lastConnection();
    client->connect();
    EXPECT_TRUE(first.expired());
}

TEST_F(XPCClientTest, HandsInvalidationAndInterruptionToItsHooks) {
    const auto client = connectedClient();
    transport->lastConnection()->sendInterruption();
    transport->lastConnection()->sendInvalidation();
    EXPECT_THAT(client->steps, ElementsAre("will-resume", "did-resume", "interrupted", "invalidated"));
}

TEST_F(XPCClientTest, TheBaseDoesNothingAboutALostConnection) {
    const auto client = std::make_shared<cmn::XPCClient>(dispatch, transport, "com.example.Service", true);
    client->connect();
    transport->lastConnection()->sendInterruption();
    transport->lastConnection()->sendInvalidation();
    dispatch->advance(1h);
    EXPECT_EQ(transport->connectionsCreated(), 1);
}

TEST_F(XPCClientTest, ItsHandlersDoNotKeepItAliveAndAReleasedClientReceivesNothing) {
    auto client = connectedClient();
    const auto connection = transport->lastConnection();
    const std::weak_ptr<RecordingClient> watched = client;
    client.reset();
    EXPECT_TRUE(watched.expired());
    connection->sendInterruption();
    connection->sendInvalidation();
}

TEST_F(XPCClientTest, ReconnectsExactlyOnceAndNotEarlierThanThreeSecondsAfterTheCall) {
    const auto client = makeClient();
    client->reconnect(1);
    dispatch->advance(3s - 1ns);
    EXPECT_EQ(transport->connectionsCreated(), 0);
    dispatch->advance(1ns);
    EXPECT_EQ(transport->connectionsCreated(), 1);
    dispatch->advance(1h);
    EXPECT_EQ(transport->connectionsCreated(), 1);
}

TEST_F(XPCClientTest, ReconnectsAfterThreeSecondsWhateverItsArgument) {
    for (const int argument : {-1, 0, 5, 1000}) {
        const auto client = makeClient();
        const int before = transport->connectionsCreated();
        client->reconnect(argument);
        dispatch->advance(3s - 1ns);
        EXPECT_EQ(transport->connectionsCreated(), before);
        dispatch->advance(1ns);
        EXPECT_EQ(transport->connectionsCreated(), before + 1);
    }
}

TEST_F(XPCClientTest, ReconnectsOnTheQueueOfDefaultPriority) {
    const auto client = makeClient();
    client->reconnect(1);
    dispatch->advance(3s);
    EXPECT_EQ(client->queue, fake::Dispatch::Queue::normal);
}

TEST_F(XPCClientTest, APendingReconnectKeepsTheClientAlive) {
    auto client = makeClient();
    const std::weak_ptr<RecordingClient> watched = client;
    client->reconnect(1);
    client.reset();
    dispatch->advance(3s - 1ns);
    EXPECT_FALSE(watched.expired());
    dispatch->advance(1ns);
    EXPECT_EQ(transport->connectionsCreated(), 1);
    EXPECT_TRUE(watched.expired());
}

TEST_F(XPCClientTest, OverlappingReconnectsBothConnect) {
    const auto client = makeClient();
    client->reconnect(1);
    dispatch->advance(1s);
    client->reconnect(1);
    client->reconnect(1);
    dispatch->advance(3s);
    EXPECT_EQ(transport->connectionsCreated(), 3);
}

TEST_F(XPCClientTest, ADirectConnectIsReplacedByThePendingReconnect) {
    const auto client = makeClient();
    client->reconnect(1);
    client->connect();
    const auto direct = client->connection();
    dispatch->advance(3s);
    EXPECT_NE(client->connection(), direct);
}

TEST_F(XPCClientTest, StopInvalidatesAndDropsTheConnection) {
    const auto client = connectedClient();
    const auto connection = transport->lastConnection();
    client->stop();
    EXPECT_TRUE(connection->invalidated());
    EXPECT_EQ(client->connection(), nullptr);
}

TEST_F(XPCClientTest, StopOfAClientThatWasNeverConnectedDoesNothing) {
    const auto client = makeClient();
    client->stop();
    EXPECT_EQ(client->connection(), nullptr);
    EXPECT_THAT(client->steps, ElementsAre());
}

TEST_F(XPCClientTest, AStoppedClientWhoseHookReconnectsComesBackAfterThreeSeconds) {
    const auto client = makeClient();
    client->comesBack = true;
    client->connect();
    client->stop();
    dispatch->advance(3s);
    EXPECT_NE(client->connection(), nullptr);
    EXPECT_EQ(transport->connectionsCreated(), 2);
}

TEST_F(XPCClientTest, TenThousandReconnectsLeaveOneConnection) {
    const int before = fake::XPCConnection::alive();
    const auto client = makeClient();
    client->comesBack = true;
    client->connect();
    for (int i = 0; i < 10'000; ++i) {
        transport->lastConnection()->sendInvalidation();
        dispatch->advance(3s);
        ASSERT_EQ(fake::XPCConnection::alive(), before + 1) << "after " << i;
    }
    EXPECT_EQ(transport->connectionsCreated(), 10'001);
    EXPECT_EQ(dispatch->pending(), 0u);
}

// Keeps delayed tasks until they are run, all at the same time, each on a thread of its own.
class ParallelDispatch : public cmn::Dispatch {
 public:
    void async(cmn::QueuePriority /*priority*/, Task /*task*/) override { ADD_FAILURE(); }
    void after(std::chrono::nanoseconds /*delay*/, cmn::QueuePriority /*priority*/, Task task) override {
        tasks_.push_back(std::move(task));
    }
    void asyncMain(Task /*task*/) override { ADD_FAILURE(); }
    std::shared_ptr<cmn::Semaphore> createSemaphore(long /*count*/) override { return nullptr; }

    void runAll() {
        started_ = 0;
        const std::size_t wanted = tasks_.size();
        std::vector<std::thread> threads;
        for (Task& task : tasks_) {
            threads.emplace_back([this, wanted, &task] {
                ++started_;
                awaitAll(wanted);
                task();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        tasks_.clear();
    }

 private:
    void awaitAll(std::size_t wanted) const {
        while (started_ < wanted) {
            std::this_thread::yield();
        }
    }

    std::vector<Task> tasks_;
    std::atomic<std::size_t> started_{0};
};

// Takes its time in `connect`, and notes who else is in there.
class SlowClient : public cmn::XPCClient {
 public:
    using XPCClient::XPCClient;

    void willResumeConnection(const std::shared_ptr<cmn::XPCConnection>& /*connection*/) override {
        inside += 1;
        for (int i = 0; i < 100; ++i) {
            most = std::max<int>(most, inside);
            std::this_thread::yield();
        }
    }
    void didResumeConnection(const std::shared_ptr<cmn::XPCConnection>& /*connection*/) override {
        inside -= 1;
        connects += 1;
    }

    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::atomic<int> connects{0};
};

TEST(XPCClientThreadsTest, OverlappingReconnectsRunOneAfterTheOtherAndBothRun) {
    constexpr int kRounds = 100;
    const auto queues = std::make_shared<ParallelDispatch>();
    const auto connections = std::make_shared<fake::XPCTransport>();
    const auto client = std::make_shared<SlowClient>(queues, connections, "com.example.Service", true);
    for (int round = 1; round <= kRounds; ++round) {
        client->reconnect(1);
        client->reconnect(1);
        queues->runAll();
        ASSERT_EQ(client->connects, 2 * round);
        ASSERT_EQ(connections->connectionsCreated(), 2 * round);
    }
    EXPECT_EQ(client->most, 1);
}

}  // namespace
