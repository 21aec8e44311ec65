#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "BusLine.h"
#include "ScriptedBus.h"

// Buses and peers that hang or die.
namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

// Lets whole messages pass, but not the question whether the bus is alive.
class WithoutLiveness {
 public:
    bool operator()(std::string& bytes) {
        held_ += std::exchange(bytes, {});
        const std::size_t begin = held_.find("BEGIN\r\n");
        if (!begun_ && begin != std::string::npos) {
            bytes = held_.substr(0, begin + 7);
            held_.erase(0, begin + 7);
            begun_ = true;
        }
        while (begun_ && held_.size() >= 16 && held_.size() >= size()) {
            const std::string message = held_.substr(0, size());
            held_.erase(0, message.size());
            bytes += message.find("GetId") == std::string::npos ? message : "";
        }
        return true;
    }

 private:
    std::size_t size() const { return 16 + (number(12) + 7) / 8 * 8 + number(4); }
    std::size_t number(std::size_t at) const {
        std::uint32_t value = 0;
        std::memcpy(&value, held_.data() + at, sizeof value);
        return value;
    }

    bool begun_ = false;
    std::string held_;
};

class FrozenBusTest : public fake::WithBus {
 protected:
    Options watchful(const std::string& address = {}) const {
        Options options;
        options.address = address.empty() ? bus.address() : address;
        options.livenessPause = 50ms;
        options.answerDeadline = 400ms;
        return options;
    }
    Options patient() const {
        Options options;
        options.address = bus.address();
        options.livenessPause = 1h;
        return options;
    }
    // A peer of its own process, and its name.
    std::unique_ptr<fake::ChildProcess> startPeer(std::string& name) const {
        auto peer =
            std::make_unique<fake::ChildProcess>(std::vector<std::string>{BUS_PEER, "answer", bus.address()});
        name = peer->readLine().value_or("");
        return peer;
    }

    fake::TemporaryFolder folder;
};

TEST_F(FrozenBusTest, IsLostWithAReason) {
    const fake::BusLine line(loop, watchful());
    ASSERT_TRUE(line.awaitReady());
    bus.freeze();
    std::vector<fake::Answer> answers(10);
    for (const fake::Answer& answer : answers) {
        line->call(line.to("a.B", "C"), fake::Soon(), answer.taker());
    }
    ASSERT_TRUE(line.awaitLost());
    EXPECT_EQ(line.reason(), "the bus does not answer");
    ASSERT_TRUE(fake::Settle(*loop));
    for (const fake::Answer& answer : answers) {
        EXPECT_EQ(answer.error(), error::kDisconnected);
        EXPECT_EQ(answer.count(), 1U);
    }
    bus.thaw();
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(line.heard->lost, 1);
}

TEST_F(FrozenBusTest, LetsDeadlinesPassAndAnswersWhenItIsThawed) {
    const fake::BusLine line(loop, patient());
    ASSERT_TRUE(line.awaitReady());
    bus.freeze();
    const auto getId = [&] { return line->newCall(kBusName, kBusPath, kBusName, "GetId"); };
    const fake::Answer soon;
    const fake::Answer later;
    const fake::Answer latest;
    line->call(getId(), Clock::now() + 100ms, soon.taker());
    line->call(getId(), Clock::now() + 300ms, later.taker());
    line->call(getId(), fake::Soon(), latest.taker());
    EXPECT_EQ(soon.error(), error::kTimeout);
    EXPECT_EQ(later.error(), error::kTimeout);
    EXPECT_EQ(latest.count(), 0U);
    EXPECT_TRUE(line->isReady());
    bus.thaw();
    EXPECT_EQ(latest.error(), "");
    EXPECT_TRUE(line->callAndWait(getId(), fake::Soon()));
    EXPECT_EQ(soon.count() + later.count() + latest.count(), 3U);
    EXPECT_EQ(line.heard->lost, 0);
}

TEST_F(FrozenBusTest, IsNoticedAlsoWhenNoFurtherCallMayBeInFlight) {
    std::string peer;
    const auto process = startPeer(peer);
    Options options = watchful();
    options.mostInFlight = 1;
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(line.awaitReady());
    const fake::Answer silent;
    for (int i = 0; i < 10; ++i) {
        line->call(line.to(peer, "Silent"), fake::Soon(), silent.taker());
    }
    // Longer than it would take to be given up.
    EXPECT_FALSE(fake::WaitFor([&] { return line.heard->lost > 0; }, 1s)) << line.reason();
    bus.freeze();
    EXPECT_TRUE(line.awaitLost());
    EXPECT_EQ(line.reason(), "the bus does not answer");
}

TEST_F(FrozenBusTest, IsNoticedAlsoWhenNothingFurtherCanBeSent) {
    Options options = watchful();
    options.answerDeadline = 2s;
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(line.awaitReady());
    bus.freeze();
    const Message large = [&] {
        Message message = line->newSignal("/a", "a.B", "C");
        EXPECT_TRUE(message.append(std::string(8 * 1024 * 1024, 'x')));
        return message;
    }();
    while (line->send(large)) {
    }
    EXPECT_TRUE(line.awaitLost());
    EXPECT_EQ(line.reason(), "the bus does not answer");
}

TEST_F(FrozenBusTest, KeepsCallsWaitingThatFindNoRoom) {
    Options options = patient();
    options.mostInFlight = 1;
    const fake::BusLine server(loop, bus.address(), fake::Echo);
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(server.awaitReady() && line.awaitReady());
    bus.freeze();
    Message large = line->newSignal("/a", "a.B", "C");
    ASSERT_TRUE(large.append(std::string(8 * 1024 * 1024, 'x')));
    const fake::Answer first;
    const fake::Answer waiting;
    const Message echo = line.to(server->uniqueName(), "Echo", std::string(1024 * 1024, 'x'));
    line->call(echo, Clock::now() + 500ms, first.taker());
    line->call(echo, fake::Soon(), waiting.taker());
    while (line->send(large)) {
    }
    Message filler = line->newSignal("/a", "a.B", "C");
    ASSERT_TRUE(filler.append(std::string(512 * 1024, 'x')));
    while (line->send(filler)) {
    }
    EXPECT_EQ(first.error(), error::kTimeout);
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(waiting.count(), 0U);
    bus.thaw();
    EXPECT_EQ(waiting.error(), "");
}

TEST_F(FrozenBusTest, IsNotTakenForDeadWhileItBringsSomething) {
    const fake::ScriptedBus between(folder / "between", [&](int client) {
        fake::Relay(client, bus.socket(), WithoutLiveness(), nullptr);
    });
    std::string peer;
    const auto process = startPeer(peer);
    const fake::BusLine line(loop, watchful("unix:path=" + (folder / "between").string()));
    ASSERT_TRUE(line.awaitReady());
    const auto end = Clock::now() + 1200ms;
    while (Clock::now() < end) {
        const auto reply = line->callAndWait(line.to(peer, "Echo", std::string("text")), fake::Soon());
        ASSERT_TRUE(reply) << reply.error().message;
    }
    EXPECT_EQ(line.heard->lost, 0);
    // Then it is quiet, and the question is not answered.
    EXPECT_TRUE(line.awaitLost());
    EXPECT_EQ(line.reason(), "the bus does not answer");
}

TEST_F(FrozenBusTest, IsNotTakenForDeadWhenItIsMerelyQuiet) {
    const fake::BusLine line(loop, watchful());
    ASSERT_TRUE(line.awaitReady());
    EXPECT_FALSE(fake::WaitFor([&] { return line.heard->lost > 0; }, 1s)) << line.reason();
}

TEST_F(FrozenBusTest, OrAKilledOneEndsEveryCallOnce) {
    Options options = patient();
    options.mostInFlight = 10;
    const fake::BusLine server(
        loop, bus.address(),
        [kept = std::vector<Question>()](const Question& question) mutable { kept.push_back(question); });
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(server.awaitReady() && line.awaitReady());
    std::vector<fake::Answer> answers(50);
    for (const fake::Answer& answer : answers) {
        line->call(line.to(server->uniqueName(), "C"), fake::Soon(), answer.taker());
    }
    bus.kill();
    ASSERT_TRUE(line.awaitLost() && server.awaitLost());
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(line.heard->lost, 1);
    EXPECT_NE(line.reason(), "");
    for (const fake::Answer& answer : answers) {
        EXPECT_EQ(answer.error(), error::kDisconnected);
        EXPECT_EQ(answer.count(), 1U);
    }
    EXPECT_FALSE(line->send(line->newSignal("/a", "a.B", "C")));
    EXPECT_EQ(line->callAndWait(line.to("a.B", "C"), fake::Soon()).error().name, error::kDisconnected);
}

TEST_F(FrozenBusTest, ThatRestartsOftenLeavesNothingOpen) {
    std::size_t descriptors = 0;
    std::size_t memory = 0;
    for (int i = 0; i < 22; ++i) {
        const fake::BusLine server(loop, bus.address(), fake::Echo);
        const fake::BusLine line(loop, bus.address());
        ASSERT_TRUE(server.awaitReady() && line.awaitReady());
        const auto heard = line->subscribe("type='signal'", [](const Message& /*signal*/) {});
        const std::string large(1'000'000, 'x');
        ASSERT_TRUE(line->callAndWait(line.to(server->uniqueName(), "Echo", large), fake::Soon()));
        const fake::Answer answer;
        line->call(line.to("no.Body", "C", large), fake::Soon(), answer.taker());
        bus.kill();
        ASSERT_TRUE(line.awaitLost() && server.awaitLost());
        bus.start();
        if (i == 1) {
            descriptors = fake::OpenDescriptors();
            memory = fake::ResidentMiB();
        }
    }
    EXPECT_TRUE(fake::WaitFor([&] { return fake::OpenDescriptors() <= descriptors; }))
        << fake::OpenDescriptors() << " instead of " << descriptors;
    if (fake::kMeasuresMemory) {
        EXPECT_LE(fake::ResidentMiB(), memory + 16);
    }
}

TEST_F(FrozenBusTest, OrOneThatDiesWithinAMessageLosesIt) {
    const fake::ScriptedBus between(folder / "between", [&](int client) {
        fake::Relay(client, bus.socket(), nullptr,
                    [passed = std::size_t{0}](const std::string& bytes) mutable {
                        passed += bytes.size();
                        return passed < 300'000;
                    });
    });
    std::string peer;
    const auto process = startPeer(peer);
    Options options = patient();
    options.address = "unix:path=" + (folder / "between").string();
    const fake::BusLine line(loop, options);
    ASSERT_TRUE(line.awaitReady());
    const fake::Answer answer;
    line->call(line.to(peer, "Echo", std::string(1'000'000, 'x')), fake::Soon(), answer.taker());
    EXPECT_EQ(answer.error(), error::kDisconnected);
    EXPECT_TRUE(line.awaitLost());
    EXPECT_EQ(line.heard->lost, 1);
}

TEST_F(FrozenBusTest, AnswersForPeersThatDie) {
    const fake::BusLine line(loop, patient());
    ASSERT_TRUE(line.awaitReady());
    for (const char* how : {"Die", "DieInReply"}) {
        std::string peer;
        const auto process = startPeer(peer);
        const fake::Answer silent;
        line->call(line.to(peer, "Silent"), fake::Soon(), silent.taker());
        const fake::Answer answer;
        line->call(line.to(peer, how), fake::Soon(), answer.taker());
        EXPECT_EQ(answer.error(), error::kNoReply) << how;
        EXPECT_EQ(silent.error(), error::kNoReply) << how;
        EXPECT_EQ(line->callAndWait(line.to(peer, "Echo"), fake::Soon()).error().name,
                  error::kNameHasNoOwner);
    }
    EXPECT_TRUE(line->isReady());
}

}  // namespace
