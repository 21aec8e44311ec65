#include <gtest/gtest.h>

#include <algorithm>

#include "BusLine.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

class CallTest : public fake::WithBus {
 protected:
    CallTest() : CallTest(Options{}) {}
    explicit CallTest(Options options) {
        options.address = bus.address();
        options.livenessPause = 1h;  // nothing but what is tested moves anything
        server = std::make_unique<fake::BusLine>(loop, bus.address(), [this](Question question) {
            question.message().member() == "Keep" ? kept.add(std::move(question)) : fake::Echo(question);
        });
        client = std::make_unique<fake::BusLine>(loop, options);
        EXPECT_TRUE(server->awaitReady() && client->awaitReady());
        name = (*server)->uniqueName();
    }

    Message echo(const std::string& text = "text") const { return client->to(name, "Echo", text); }
    Message keep() const { return client->to(name, "Keep"); }
    // Whether a call is answered now.
    bool answers() const { return static_cast<bool>(client->connection->callAndWait(echo(), fake::Soon())); }
    void answerKept() const {
        for (const Question& question : kept.take()) {
            question.reply(std::string("late"));
        }
    }
    // All that was sent before has been delivered.
    void settle() const {
        const fake::Answer answer;
        client->connection->askBus("GetId", answer.taker());
        EXPECT_TRUE(answer.wait());
        const fake::Answer delivered;
        server->connection->askBus("GetId", delivered.taker());
        EXPECT_TRUE(delivered.wait());
    }

    const fake::Recorder<Question> kept;  // the questions that are not answered yet
    std::unique_ptr<fake::BusLine> server;
    std::unique_ptr<fake::BusLine> client;
    std::string name;
};

class CallsOneByOneTest : public CallTest {
 protected:
    CallsOneByOneTest() : CallTest(Options{.address = {}, .mostInFlight = 1}) {}
};

TEST_F(CallTest, OfSeveralThreadsEndOnceEachAndNeverMoreThanAllowedAreInFlight) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kCalls = 2'500;
    std::vector<fake::Answer> answers(kThreads * kCalls);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (std::size_t call = i * kCalls; call < (i + 1) * kCalls; ++call) {
                (*client)->call(keep(), fake::Soon() + 60s, answers[call].taker());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() >= 100; }));
    settle();
    EXPECT_EQ(kept.count(), 100U);
    std::size_t served = 0;
    const auto serve = [&] {
        const auto questions = kept.take();
        EXPECT_LE(questions.size(), 100U);
        for (const Question& question : questions) {
            question.reply(std::string("late"));
        }
        served += questions.size();
        return served >= answers.size();
    };
    ASSERT_TRUE(fake::WaitFor(serve, 100s)) << served;
    EXPECT_TRUE(fake::WaitFor([&] {
        return std::all_of(answers.begin(), answers.end(), [](const auto& one) { return one.count() > 0; });
    }));
    settle();
    EXPECT_TRUE(std::all_of(answers.begin(), answers.end(),
                            [](const auto& one) { return one.count() == 1 && one.error().empty(); }));
    EXPECT_EQ(served, answers.size());
}

TEST_F(CallsOneByOneTest, ThatAreNotAnsweredInTimeFailAndMakeRoom) {
    const fake::Answer late;
    (*client)->call(keep(), Clock::now() + 100ms, late.taker());
    EXPECT_EQ(late.error(), error::kTimeout);
    EXPECT_TRUE(answers());
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 1; }));
    answerKept();
    EXPECT_TRUE(answers());
    settle();
    EXPECT_EQ(late.count(), 1U);
}

TEST_F(CallsOneByOneTest, HaveTheirDeadlineAlsoWhileTheyWaitForTheirTurn) {
    const fake::Answer first;
    const fake::Answer waiting;
    const fake::Answer past;
    (*client)->call(keep(), fake::Soon(), first.taker());
    (*client)->call(echo(), Clock::now() + 100ms, waiting.taker());
    (*client)->call(echo(), Clock::now() - 1h, past.taker());
    EXPECT_EQ(past.error(), error::kTimeout);
    EXPECT_EQ(waiting.error(), error::kTimeout);
    EXPECT_EQ(first.count(), 0U);
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 1; }));
    answerKept();
    EXPECT_TRUE(first.wait());
    EXPECT_TRUE(answers());
}

TEST_F(CallsOneByOneTest, AreNotAnsweredOnceCancelled) {
    const fake::Answer sent;
    const fake::Answer waiting;
    const auto sentId = (*client)->call(keep(), fake::Soon(), sent.taker());
    const auto waitingId = (*client)->call(echo(), fake::Soon(), waiting.taker());
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 1; }));
    (*client)->cancel(waitingId);
    (*client)->cancel(sentId);
    (*client)->cancel(sentId);
    (*client)->cancel(4711);
    answerKept();
    EXPECT_TRUE(answers());
    settle();
    EXPECT_EQ(sent.count(), 0U);
    EXPECT_EQ(waiting.count(), 0U);
}

TEST_F(CallsOneByOneTest, MakeRoomWhenTheyAreCancelled) {
    const fake::Answer first;
    const fake::Answer waiting;
    const auto id = (*client)->call(keep(), fake::Soon(), first.taker());
    (*client)->call(echo(), fake::Soon(), waiting.taker());
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 1; }));
    ASSERT_TRUE(fake::Settle(*loop));
    (*client)->cancel(id);
    EXPECT_EQ(waiting.error(), "");
}

TEST_F(CallsOneByOneTest, AreAllCancelledAtOnce) {
    std::vector<fake::Answer> all(20);
    for (const fake::Answer& one : all) {
        (*client)->call(keep(), Clock::now() + 200ms, one.taker());
    }
    (*client)->cancelAll();
    EXPECT_TRUE(answers());
    const fake::Answer later;
    (*client)->call(keep(), Clock::now() + 400ms, later.taker());
    EXPECT_EQ(later.error(), error::kTimeout);
    EXPECT_TRUE(std::all_of(all.begin(), all.end(), [](const auto& one) { return one.count() == 0; }));
}

TEST_F(CallsOneByOneTest, FailOnceWhenTheConnectionIsClosed) {
    std::vector<fake::Answer> all(20);
    for (const fake::Answer& one : all) {
        (*client)->call(keep(), fake::Soon(), one.taker());
    }
    (*client)->close("because");
    (*client)->close("again");
    for (const fake::Answer& one : all) {
        EXPECT_EQ(one.error(), error::kDisconnected);
        EXPECT_NE(one.wait().error().message.find("because"), std::string::npos);
    }
    const fake::Answer after;
    (*client)->call(echo(), fake::Soon(), after.taker());
    EXPECT_EQ(after.error(), error::kDisconnected);
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_TRUE(std::all_of(all.begin(), all.end(), [](const auto& one) { return one.count() == 1; }));
    EXPECT_EQ(client->heard->lost, 0);
}

TEST_F(CallsOneByOneTest, AreDroppedWithoutAWordWithTheConnection) {
    std::vector<fake::Answer> all(20);
    for (const fake::Answer& one : all) {
        (*client)->call(keep(), Clock::now() + 100ms, one.taker());
    }
    client->connection.reset();
    ASSERT_TRUE(fake::Settle(*loop));
    const fake::Answer later;
    (*server)->call((*server)->newCall(name, "/a", "a.B", "Keep"), Clock::now() + 200ms, later.taker());
    EXPECT_EQ(later.error(), error::kTimeout);
    EXPECT_TRUE(std::all_of(all.begin(), all.end(), [](const auto& one) { return one.count() == 0; }));
    EXPECT_EQ(client->heard->lost, 0);
}

TEST_F(CallTest, ThatFailedButAreNotToldYetAreNotToldOnceTheConnectionIsGone) {
    const fake::Answer waiting;
    const fake::Answer refused;
    std::promise<void> entered;
    std::promise<void> leave;
    loop->post([&] {
        entered.set_value();
        leave.get_future().wait();
    });
    entered.get_future().wait();
    (*client)->call(keep(), fake::Soon(), waiting.taker());
    (*client)->call(Message(), fake::Soon(), refused.taker());
    (*client)->close("because");
    client->connection.reset();
    leave.set_value();
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(waiting.count(), 0U);
    EXPECT_EQ(refused.count(), 0U);
}

TEST_F(CallTest, BringTheErrorsOfOthersByTheirNames) {
    const fake::BusLine failing(loop, bus.address(), [](const Question& question) {
        const auto error = question.message().read<std::string, std::string>();
        question.fail(error ? Error{std::get<0>(*error), std::get<1>(*error)} : error.error());
    });
    ASSERT_TRUE(failing.awaitReady());
    const auto fails = [&](const std::string& errorName, const std::string& text) {
        const auto reply =
            (*client)->callAndWait(client->to(failing->uniqueName(), "Fail", errorName, text), fake::Soon());
        return reply ? Error{} : reply.error();
    };
    EXPECT_EQ(fails("a.b.Error", "why").name, "a.b.Error");
    EXPECT_EQ(fails("a.b.Error", "why").message, "why");
    EXPECT_EQ(fails("a.b.Error", "").message, "");
    EXPECT_EQ(fails("a.b.Error", "h\xc3\xa4\xff").message, "h\xc3\xa4\xef\xbf\xbd");
    EXPECT_EQ(fails("a.b.Error", std::string(1'000'000, 'x')).message, std::string(4096, 'x'));
    for (const char* malformed : {"", "noDot", "a.b c", "a..b", "a.\xff"}) {
        EXPECT_EQ(fails(malformed, "why").name, error::kFailed) << malformed;
    }
    EXPECT_TRUE(failing->isReady());
    EXPECT_EQ((*client)->callAndWait(client->to("no.Body", "C"), fake::Soon()).error().name,
              error::kNameHasNoOwner);
}

TEST_F(CallTest, ThatAreTooLargeFailHereAndTheConnectionLives) {
    EXPECT_FALSE(echo(std::string(kLargestMessage, 'x')));
    const fake::Answer answer;
    (*client)->call(echo(std::string(kLargestMessage, 'x')), fake::Soon(), answer.taker());
    EXPECT_EQ(answer.error(), error::kLimitsExceeded);
    EXPECT_FALSE((*client)->send(echo(std::string(kLargestMessage, 'x'))));

    const std::string large(kLargestMessage - 100, 'x');
    const auto reply = (*client)->callAndWait(echo(large), fake::Soon());
    ASSERT_TRUE(reply) << reply.error().message;
    EXPECT_EQ(*reply->readOne<std::string>(kLargestMessage), large);
    EXPECT_EQ(reply->readOne<std::string>().error().name, error::kLimitsExceeded)
        << "nobody said that it wants as much";
}

TEST_F(CallsOneByOneTest, AreRefusedWhenTooManyWait) {
    const fake::Answer first;
    const fake::Answer waits;
    (*client)->call(keep(), fake::Soon(), first.taker());
    for (int i = 0; i < 10'000; ++i) {
        (*client)->call(keep(), fake::Soon(), waits.taker());
    }
    const fake::Answer tooMany;
    (*client)->call(keep(), fake::Soon(), tooMany.taker());
    EXPECT_EQ(tooMany.error(), error::kLimitsExceeded);
    EXPECT_EQ(waits.count(), 0U);
    const fake::Answer urgent;
    (*client)->askBus("GetId", urgent.taker());
    EXPECT_TRUE(urgent.wait());
}

TEST_F(CallsOneByOneTest, AreRefusedWhenTooMuchWaits) {
    const fake::Answer first;
    const fake::Answer waits;
    (*client)->call(keep(), fake::Soon(), first.taker());
    const Message large = echo(std::string(15 * 1024 * 1024, 'x'));
    for (int i = 0; i < 4; ++i) {
        (*client)->call(large, fake::Soon(), waits.taker());
    }
    const fake::Answer tooMuch;
    (*client)->call(large, fake::Soon(), tooMuch.taker());
    EXPECT_EQ(tooMuch.error(), error::kLimitsExceeded);
    EXPECT_EQ(waits.count(), 0U);
    (*client)->cancelAll();
    EXPECT_TRUE(answers());
}

TEST_F(CallsOneByOneTest, ThatWereGivenUpWhileTheyWaitedMakeRoomForOthers) {
    const fake::Answer first;
    (*client)->call(keep(), fake::Soon(), first.taker());
    const fake::Answer waits;
    for (int i = 0; i < 10'000; ++i) {
        (*client)->cancel((*client)->call(keep(), fake::Soon(), waits.taker()));
    }
    const fake::Answer next;
    (*client)->call(echo(), fake::Soon(), next.taker());
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 1; }));
    answerKept();
    EXPECT_EQ(next.error(), "");
    EXPECT_EQ(waits.count(), 0U);
}

TEST_F(CallTest, NeedWellFormedNames) {
    auto& line = *client->connection;
    EXPECT_TRUE(line.newCall(name, "/a", "a.B", "C"));
    for (const char* path : {"", "a", "/a/", "//", "/a b", "/\xff"}) {
        EXPECT_FALSE(line.newCall(name, path, "a.B", "C")) << path;
        EXPECT_FALSE(line.newSignal(path, "a.B", "C")) << path;
    }
    for (const char* interface : {"", "a", "a.", "a b.c"}) {
        EXPECT_FALSE(line.newCall(name, "/a", interface, "C")) << interface;
        EXPECT_FALSE(line.newSignal("/a", interface, "C")) << interface;
    }
    for (const char* member : {"", "a.b", "1", "\xc3\xa4"}) {
        EXPECT_FALSE(line.newCall(name, "/a", "a.B", member)) << member;
        EXPECT_FALSE(line.newSignal("/a", "a.B", member)) << member;
    }
    for (const char* destination : {"", "a", "a b.c", "."}) {
        EXPECT_FALSE(line.newCall(destination, "/a", "a.B", "C")) << destination;
    }
    EXPECT_FALSE(line.newCall(name, "/a", "a.B", std::string(300, 'm')));
    EXPECT_EQ(line.callAndWait(line.newCall(name, "", "a.B", "C"), fake::Soon()).error().name,
              error::kLimitsExceeded);
    EXPECT_FALSE(line.send(Message()));
    EXPECT_TRUE(line.isReady());
    EXPECT_TRUE(answers());
}

TEST_F(CallTest, ToAbsentServicesStartThemOnlyWhenTold) {
    const fake::PrivateBus starting(fake::PrivateBus::WithService{"a.Service"});
    const fake::BusLine line(loop, starting.address());
    ASSERT_TRUE(line.awaitReady());
    EXPECT_EQ(line->callAndWait(line->newCall("a.Service", "/a", "a.B", "C"), fake::Soon()).error().name,
              error::kNameHasNoOwner);
    EXPECT_FALSE(starting.serviceWasStarted());
    line->call(line->newCall("a.Service", "/a", "a.B", "C", Connection::AutoStart::yes), fake::Soon(),
               [](const auto& /*reply*/) {});
    EXPECT_TRUE(fake::WaitFor([&] { return starting.serviceWasStarted(); }));
}

TEST_F(CallTest, OfThreadsThatWaitAreAnsweredEachItsOwn) {
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int call = 0; call < 100; ++call) {
                const std::string text = std::to_string(i) + "." + std::to_string(call);
                const auto reply = (*client)->callAndWait(echo(text), fake::Soon());
                right += reply && *reply->readOne<std::string>() == text ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 400);
}

TEST_F(CallTest, ThatWaitEndWithTheirDeadlineOrTheConnection) {
    EXPECT_EQ((*client)->callAndWait(keep(), Clock::now() + 50ms).error().name, error::kTimeout);
    auto closed = std::async(std::launch::async,
                             [&] { return (*client)->callAndWait(keep(), fake::Soon()).error().name; });
    ASSERT_TRUE(fake::WaitFor([&] { return kept.count() == 2; }));
    (*client)->close("because");
    EXPECT_EQ(closed.get(), error::kDisconnected);
}

TEST_F(CallTest, ThatWaitEndWhenTheLoopWasStopped) {
    loop->stop();
    EXPECT_EQ((*client)->callAndWait(echo(), Clock::now() + 50ms).error().name, error::kTimeout);
    (*client)->close("because");
    EXPECT_EQ((*client)->callAndWait(echo(), fake::Soon()).error().name, error::kDisconnected);
}

TEST_F(CallTest, GoOnWhenAHandlerThrows) {
    std::vector<fake::Answer> answers(3);
    const auto throwing = [](const fake::Answer& answer) {
        return [taker = answer.taker()](const Connection::Reply& reply) {
            taker(reply);
            throw std::runtime_error("a handler of a test");
        };
    };
    (*client)->call(echo(), fake::Soon(), throwing(answers[0]));
    EXPECT_TRUE(answers[0].wait());
    (*client)->call(keep(), Clock::now() + 50ms, throwing(answers[1]));
    EXPECT_EQ(answers[1].error(), error::kTimeout);
    (*client)->call(keep(), fake::Soon(), throwing(answers[2]));
    const fake::Answer last;
    (*client)->call(keep(), fake::Soon(), last.taker());
    (*client)->close("because");
    EXPECT_EQ(answers[2].error(), error::kDisconnected);
    EXPECT_EQ(last.error(), error::kDisconnected);
}

TEST_F(CallTest, GoOnWhenAHandlerThrowsWhileTheBusIsLost) {
    const fake::Answer last;
    (*client)->call(keep(), fake::Soon(),
                    [](const auto& /*reply*/) { throw std::runtime_error("a handler of a test"); });
    (*client)->call(keep(), fake::Soon(), last.taker());
    bus.kill();
    EXPECT_EQ(last.error(), error::kDisconnected);
    EXPECT_TRUE(client->awaitLost());
}

}  // namespace
