#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>

#include "BusLine.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

class LoadTest : public fake::WithBus {};

TEST_F(LoadTest, AFloodOfLargeMessagesKeepsNobodyElseFromAnAnswer) {
    std::atomic<int> flooded{0};
    const fake::BusLine server(loop, bus.address(), [&](const Question& question) {
        if (question.message().member() == "Flood") {
            ++flooded;
            question.fail({error::kUnknownMethod, "No"});
        } else {
            fake::Echo(question);
        }
    });
    const fake::BusLine other(loop, bus.address(), fake::Echo);
    const fake::BusLine client(loop, bus.address());
    ASSERT_TRUE(server.awaitReady() && other.awaitReady() && client.awaitReady());
    // What is held is to be measured, not what the allocator keeps.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
    const std::size_t before = fake::ResidentMiB();
    std::size_t most = 0;
    int answered = 0;
    const int count = fake::kMeasuresMemory ? 70 : 10;
    const int large = fake::kMeasuresMemory ? 6 : 1;
    fake::ChildProcess peer({BUS_PEER, "flood", bus.address(), server->uniqueName(), std::to_string(count),
                             std::to_string(large)});
    // Whom the flood is meant for is reached behind it.
    ASSERT_TRUE(fake::WaitFor([&] { return flooded > 0; }));
    const fake::Answer behind;
    client->call(client.to(server->uniqueName(), "Echo", std::string("text")), fake::Soon() + 60s,
                 behind.taker());
    const auto everythingCame = [&] {
        const auto reply =
            client->callAndWait(client.to(other->uniqueName(), "Echo", std::string("text")), fake::Soon());
        EXPECT_TRUE(reply) << reply.error().message;
        answered += reply ? 1 : 0;
        most = std::max(most, fake::ResidentMiB());
        return flooded >= count + large && behind.count() > 0;
    };
    ASSERT_TRUE(fake::WaitFor(everythingCame, 100s)) << flooded;
    EXPECT_EQ(behind.error(), "");
    EXPECT_EQ(peer.wait(), 0);
    EXPECT_GT(answered, 4);
    EXPECT_TRUE(server->isReady());
    if (fake::kMeasuresMemory) {
        // One message at a time.
        EXPECT_LE(most, before + 80);
        EXPECT_LE(fake::ResidentMiB(), before + 16);
    }
}

TEST_F(LoadTest, AFrozenBusTakesNoMoreThanItsShareAndRecovers) {
    Options options;
    options.address = bus.address();
    options.livenessPause = 1h;
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(line.awaitReady());
    std::atomic<int> heard{0};
    const fake::BusLine listener(loop, bus.address());
    ASSERT_TRUE(listener.awaitReady());
    std::promise<void> installed;
    const auto subscription = listener->subscribe(
        "type='signal',member='Small'", [&](const Message& /*signal*/) { ++heard; },
        [&](const auto& /*error*/) { installed.set_value(); });
    installed.get_future().wait();

    bus.freeze();
    const std::size_t before = fake::ResidentMiB();
    int small = 0;
    for (int i = 0; i < 100'000; ++i) {
        Message signal = line->newSignal("/a", "a.B", "Small");
        ASSERT_TRUE(signal && signal.append(std::string("text")));
        small += line->send(signal) ? 1 : 0;
    }
    EXPECT_GT(small, 0);
    EXPECT_LT(small, 50'000);
    if (fake::kMeasuresMemory) {
        EXPECT_LE(fake::ResidentMiB(), before + 32);
    }
    bus.thaw();
    EXPECT_TRUE(fake::WaitFor([&] { return heard == small; }, 60s)) << heard << " of " << small;

    bus.freeze();
    const std::string mebibyte(1024 * 1024, 'x');
    int large = 0;
    for (int i = 0; i < 500; ++i) {
        Message signal = line->newSignal("/a", "a.B", "Large");
        ASSERT_TRUE(signal && signal.append(mebibyte));
        large += line->send(signal) ? 1 : 0;
    }
    EXPECT_GE(large, 60);
    EXPECT_LE(large, 64 + 16);  // the socket takes some, too
    if (fake::kMeasuresMemory) {
        EXPECT_LE(fake::ResidentMiB(), before + 120);
    }
    const fake::Answer refused;
    line->call(line.to("a.B", "C", mebibyte), fake::Soon(), refused.taker());
    EXPECT_EQ(refused.error(), error::kLimitsExceeded);
    bus.thaw();
    EXPECT_TRUE(fake::WaitFor([&] {
        Message signal = line->newSignal("/a", "a.B", "Large");
        return signal.append(mebibyte) && line->send(signal);
    }));
    EXPECT_TRUE(line->callAndWait(line->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()));
    EXPECT_EQ(line.heard->lost, 0);
}

TEST_F(LoadTest, ThreadsWriteAndReadLargeMessagesWhileTheLoopServes) {
    const fake::BusLine server(loop, bus.address(), [](const Question& question) {
        const auto records = question.message().readOne<fake::Records>();
        records ? question.reply(*records) : fake::Echo(question);
    });
    const fake::BusLine client(loop, bus.address());
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    const std::string name = server->uniqueName();
    std::map<std::string, std::string> record;
    for (int i = 0; i < 14; ++i) {
        record["key " + std::to_string(i)] = "a value of some length";
    }
    const fake::Records records(200, record);
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 10; ++call) {
                const auto reply = client->callAndWait(client.to(name, "C", records), fake::Soon());
                const auto read = reply ? reply->readOne<fake::Records>() : reply.error();
                right += read && *read == records ? 1 : 0;
            }
        });
    }
    for (int call = 0; call < 50; ++call) {
        EXPECT_TRUE(client->callAndWait(client.to(name, "C", std::string("text")), fake::Soon()));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 40);
}

}  // namespace
