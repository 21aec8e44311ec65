#include <gtest/gtest.h>

#include <array>

#include "BusLine.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

// What a subscription brings.
class Ear {
 public:
    Ear(const fake::BusLine& line, const std::string& rule) {
        subscription = line->subscribe(
            rule,
            [texts = texts_](const Message& signal) {
                texts.add(std::string(signal.member()) + " " + signal.readOne<std::string>().operator*());
            },
            [installed = installed_](const std::optional<Error>& error) {
                installed.add(error ? error->name : "yes");
            });
    }
    // Waits until the bus took it, or did not.
    std::string awaitInstalled() const {
        fake::WaitInHandler([&] { return installed_.count() > 0; });
        return installed_.count() > 0 ? installed().front() : "nothing";
    }
    std::vector<std::string> installed() const { return installed_.all(); }
    std::vector<std::string> texts() const { return texts_.all(); }

 private:
    const fake::Recorder<std::string> installed_, texts_;

 public:
    std::shared_ptr<Subscription> subscription;
};

class SignalTest : public fake::WithBus {
 protected:
    SignalTest() { EXPECT_TRUE(speaker.awaitReady() && listener.awaitReady()); }

    static bool say(const fake::BusLine& who, const std::string& member, const std::string& text) {
        Message signal = who->newSignal("/a", "a.B", member);
        return signal && signal.append(text) && who->send(signal);
    }
    // Everything that was said before has been heard.
    void settle() const {
        for (const auto* const line : {&speaker, &listener}) {
            EXPECT_TRUE(
                (*line)->callAndWait((*line)->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()));
        }
    }

    const fake::BusLine speaker{loop, bus.address()};
    const fake::BusLine listener{loop, bus.address()};
};

TEST_F(SignalTest, AreHeardAsTheirRulesSay) {
    const fake::BusLine stranger(loop, bus.address());
    ASSERT_TRUE(stranger.awaitReady());
    const Ear all(listener, "type='signal',interface='a.B'");
    const Ear one(listener, "type='signal',member='One'");
    const Ear ofSpeaker(listener, "type='signal',interface='a.B',sender='" + speaker->uniqueName() + "'");
    EXPECT_EQ(all.awaitInstalled() + one.awaitInstalled() + ofSpeaker.awaitInstalled(), "yesyesyes");
    EXPECT_TRUE(say(speaker, "One", "1"));
    EXPECT_TRUE(say(speaker, "Two", "2"));
    settle();
    EXPECT_TRUE(say(stranger, "Two", "3"));
    EXPECT_TRUE(fake::WaitFor([&] { return all.texts().size() == 3; }));
    settle();
    EXPECT_EQ(all.texts(), (std::vector<std::string>{"One 1", "Two 2", "Two 3"}));
    EXPECT_EQ(one.texts(), (std::vector<std::string>{"One 1"}));
    EXPECT_EQ(ofSpeaker.texts(), (std::vector<std::string>{"One 1", "Two 2"}));
    EXPECT_EQ(all.installed().size(), 1U);
}

TEST_F(SignalTest, AreNotHeardOnceTheSubscriptionIsGone) {
    Ear brief(listener, "type='signal',interface='a.B'");
    const Ear lasting(listener, "type='signal',interface='a.B'");
    EXPECT_EQ(brief.awaitInstalled() + lasting.awaitInstalled(), "yesyes");
    say(speaker, "One", "1");
    EXPECT_TRUE(fake::WaitFor([&] { return lasting.texts().size() == 1; }));
    brief.subscription.reset();
    say(speaker, "One", "2");
    EXPECT_TRUE(fake::WaitFor([&] { return lasting.texts().size() == 2; }));
    settle();
    EXPECT_EQ(brief.texts(), (std::vector<std::string>{"One 1"}));
}

TEST_F(SignalTest, ThatArrivedButAreNotToldYetAreNotHeardOnceTheSubscriptionIsGone) {
    std::array<std::shared_ptr<Subscription>, 2> both;
    std::atomic<int> heard{0};
    std::promise<void> installed;
    const auto subscribe = [&](std::size_t own, std::function<void(const std::optional<Error>&)> done) {
        // Both are told of the same signal, and the one that is told first ends the other.
        both.at(own) = listener->subscribe(
            "type='signal',interface='a.B'",
            [&, own](const Message& /*signal*/) {
                ++heard;
                both.at(1 - own).reset();
            },
            std::move(done));
    };
    subscribe(0, nullptr);
    subscribe(1, [&](const auto& /*error*/) { installed.set_value(); });
    installed.get_future().wait();
    say(speaker, "One", "1");
    settle();
    EXPECT_EQ(heard, 1);
}

TEST_F(SignalTest, AreSubscribedAndLeftByManyThreads) {
    std::atomic<bool> ends{false};
    std::thread speaking([&] {
        while (!ends) {
            say(speaker, "One", "1");
            std::this_thread::sleep_for(1ms);
        }
    });
    std::vector<std::thread> threads;
    std::atomic<int> heard{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 30; ++round) {
                const Ear ear(listener, "type='signal',member='One'");
                heard += fake::WaitInHandler([&] { return !ear.texts().empty(); }) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ends = true;
    speaking.join();
    EXPECT_EQ(heard, 120);
    settle();
}

TEST_F(SignalTest, OfAMalformedRuleAreRefused) {
    const std::map<std::string, std::string> refusals{
        {"nonsense", error::kFailed},  // by the library
        {"type='signal',path='x'", "org.freedesktop.DBus.Error.MatchRuleInvalid"},
        {"type='signal',arg99='a'", error::kFailed},
    };
    for (const auto& [rule, refusal] : refusals) {
        const Ear ear(listener, rule);
        EXPECT_EQ(ear.awaitInstalled(), refusal) << rule;
        EXPECT_EQ(ear.installed().size(), 1U);
    }
    settle();
    EXPECT_TRUE(listener->isReady());
}

TEST_F(SignalTest, AreRefusedByABusThatAllowsNoMore) {
    const fake::BusLine line(loop, bus.address());
    ASSERT_TRUE(line.awaitReady());
    std::vector<std::unique_ptr<Ear>> ears;
    // 512 unless its configuration says otherwise.
    const std::string refused = [&] {
        for (int i = 0; i < 100'000; ++i) {
            ears.push_back(std::make_unique<Ear>(line, "type='signal',member='M" + std::to_string(i) + "'"));
            if (i % 64 == 0 && ears.back()->awaitInstalled() != "yes") {
                break;
            }
        }
        return ears.back()->awaitInstalled();
    }();
    EXPECT_EQ(refused, error::kLimitsExceeded);
    EXPECT_TRUE(line->isReady());
}

TEST_F(SignalTest, OfAConnectionThatIsGoneAreRefused) {
    listener->close("because");
    const Ear ear(listener, "type='signal'");
    EXPECT_EQ(ear.awaitInstalled(), error::kFailed);
    EXPECT_EQ(ear.installed().size(), 1U);
}

TEST_F(SignalTest, AreRefusedWhenTheConnectionEndsBeforeTheBusTookTheRule) {
    bus.freeze();
    const Ear closed(listener, "type='signal'");
    const Ear lost(speaker, "type='signal'");
    Ear gone(speaker, "type='signal'");
    gone.subscription.reset();
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_TRUE(closed.installed().empty() && lost.installed().empty());
    listener->close("because");
    EXPECT_EQ(closed.awaitInstalled(), error::kDisconnected);
    bus.kill();
    EXPECT_EQ(lost.awaitInstalled(), error::kDisconnected);
    EXPECT_TRUE(speaker.awaitLost());
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(closed.installed().size() + lost.installed().size(), 2U);
    EXPECT_TRUE(gone.installed().empty());
}

TEST_F(SignalTest, TellWhoComesAndGoes) {
    const fake::Recorder<std::string> changes;
    std::promise<void> installed;
    const auto watch = listener->subscribe(
        "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='"
        "NameOwnerChanged'",
        [&](const Message& signal) {
            const auto change = signal.read<std::string, std::string, std::string>();
            changes.add(change ? std::get<0>(*change) + (std::get<2>(*change).empty() ? " goes" : " comes")
                               : change.error().message);
        },
        [&](const auto& /*error*/) { installed.set_value(); });
    installed.get_future().wait();
    std::string name;
    {
        const fake::BusLine visitor(loop, bus.address());
        ASSERT_TRUE(visitor.awaitReady());
        name = visitor->uniqueName();
    }
    EXPECT_TRUE(fake::WaitFor([&] { return changes.count() >= 2; }));
    EXPECT_EQ(changes.all(), (std::vector<std::string>{name + " comes", name + " goes"}));
}

}  // namespace
