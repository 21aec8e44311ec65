#include <gtest/gtest.h>

#include "BusLine.h"
#include "ScriptedBus.h"
#include "support/LogCapture.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

class QuestionTest : public fake::WithBus {
 protected:
    // A client, and a server that is asked.
    void serve(std::function<void(Question)> asked, const std::string& address = {}) {
        server = std::make_unique<fake::BusLine>(loop, address.empty() ? bus.address() : address,
                                                 std::move(asked));
        client = std::make_unique<fake::BusLine>(loop, bus.address());
        ASSERT_TRUE(server->awaitReady() && client->awaitReady());
        name = (*server)->uniqueName();
    }
    Connection::Reply ask(const std::string& text = "text") const {
        return (*client)->callAndWait(client->to(name, "Ask", text), fake::Soon());
    }
    std::string refusal() const {
        const auto reply = ask();
        return reply ? "none" : reply.error().name;
    }

    fake::TemporaryFolder folder;
    std::unique_ptr<fake::BusLine> server;
    std::unique_ptr<fake::BusLine> client;
    std::string name;
};

TEST_F(QuestionTest, SaysWhatIsAskedAndByWhom) {
    std::promise<std::vector<std::string>> header;
    serve([&](const Question& question) {
        const Message& message = question.message();
        header.set_value({std::string(message.sender()), std::string(message.path()),
                          std::string(message.interface()), std::string(message.member()),
                          std::string(message.signature())});
        question.reply();
    });
    const auto reply = ask();
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->read<>());
    EXPECT_EQ(header.get_future().get(),
              (std::vector<std::string>{(*client)->uniqueName(), "/a", "a.B", "Ask", "s"}));
}

TEST_F(QuestionTest, IsAnsweredFromAnyThread) {
    std::vector<std::thread> threads;
    serve([&](const Question& question) {
        threads.emplace_back([question] { question.reply(std::string("from a thread")); });
    });
    for (int i = 0; i < 20; ++i) {
        const auto reply = ask();
        ASSERT_TRUE(reply);
        EXPECT_EQ(*reply->readOne<std::string>(), "from a thread");
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(QuestionTest, FailsWhenNobodyAnswersAnyMore) {
    serve([](const Question& /*question*/) {});
    const auto reply = ask();
    ASSERT_FALSE(reply);
    EXPECT_EQ(reply.error().name, error::kFailed);
    EXPECT_EQ(reply.error().message, "The message was received but not answered");
}

TEST_F(QuestionTest, WaitsForItsLastCopy) {
    std::promise<Question> kept;
    serve([&](const Question& question) { kept.set_value(question); });
    const fake::Answer answer;
    (*client)->call(client->to(name, "Ask"), fake::Soon(), answer.taker());
    auto question = std::make_unique<Question>(kept.get_future().get());
    auto copy = std::make_unique<Question>(*question);
    question.reset();
    ASSERT_TRUE(fake::Settle(*loop));
    EXPECT_EQ(answer.count(), 0U);
    std::thread([&] { copy.reset(); }).join();
    EXPECT_EQ(answer.error(), error::kFailed);
}

TEST_F(QuestionTest, HasOneAnswerTheFirst) {
    serve([](const Question& question) {
        question.reply(std::string("first"));
        question.reply(std::string("second"));
        question.fail({"a.b.Error", "third"});
    });
    for (int i = 0; i < 3; ++i) {
        const auto reply = ask();
        ASSERT_TRUE(reply);
        EXPECT_EQ(*reply->readOne<std::string>(), "first");
    }
    EXPECT_EQ((*server)->isReady(), true);
}

TEST_F(QuestionTest, HasOneAnswerAlsoWhenSeveralThreadsGiveIt) {
    std::vector<std::thread> threads;
    serve([&](const Question& question) {
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([question, i] {
                i == 0 ? question.fail({"a.b.Error", ""}) : question.reply(std::to_string(i));
            });
        }
    });
    const fake::Answer answer;
    for (int i = 0; i < 10; ++i) {
        (*client)->call(client->to(name, "Ask"), fake::Soon(), answer.taker());
    }
    EXPECT_TRUE(fake::WaitFor([&] { return answer.count() == 10; }));
    EXPECT_TRUE(
        (*client)->callAndWait((*client)->newCall(kBusName, kBusPath, kBusName, "GetId"), fake::Soon()));
    EXPECT_EQ(answer.count(), 10U);
    EXPECT_TRUE(fake::Settle(*loop));
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(QuestionTest, WithoutWishForAnAnswerGetsNone) {
    std::mutex mutex;
    std::string said;
    const fake::ScriptedBus between(folder / "between", [&](int line) {
        fake::Relay(
            line, bus.socket(),
            [&](const std::string& bytes) {
                const std::lock_guard lock(mutex);
                said += bytes;
                return true;
            },
            nullptr);
    });
    const auto saidIt = [&](const std::string& text) {
        const std::lock_guard lock(mutex);
        return said.find(text) != std::string::npos;
    };
    std::atomic<int> asked{0};
    serve(
        [&](const Question& question) {
            EXPECT_EQ(question.message().wantsReply(), question.message().member() == "Ask");
            if (question.message().path() != "/nothing") {
                question.reply("an answer to " + std::string(question.message().member()));
            }
            ++asked;
        },
        "unix:path=" + (folder / "between").string());
    EXPECT_TRUE((*client)->send(client->to(name, "Tell")));
    EXPECT_TRUE((*client)->send((*client)->newCall(name, "/nothing", "a.B", "Tell")));
    ASSERT_TRUE(ask());
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(saidIt("an answer to Ask"));
    EXPECT_FALSE(saidIt("an answer to Tell"));
    EXPECT_FALSE(saidIt("not answered"));
}

TEST_F(QuestionTest, FailsWhenItsAnswerIsTooLarge) {
    fake::LogCapture log;
    serve([](const Question& question) { question.reply(std::string(kLargestMessage, 'x')); });
    EXPECT_EQ(refusal(), error::kLimitsExceeded);
    EXPECT_EQ(log.count("An answer to Ask is too large to be sent"), 1U);
    EXPECT_EQ(refusal(), error::kLimitsExceeded);
    EXPECT_TRUE((*server)->isReady());
}

TEST_F(QuestionTest, FailsWhenItsHandlerThrows) {
    fake::LogCapture log;
    serve([](const Question& /*question*/) { throw std::runtime_error("out of order"); });
    EXPECT_EQ(refusal(), error::kFailed);
    EXPECT_EQ(log.count("Task -- failed: out of order"), 1U);
    EXPECT_EQ(refusal(), error::kFailed);
}

TEST_F(QuestionTest, IsForgottenWhenItsConnectionIsGone) {
    for (const bool closed : {true, false}) {
        std::promise<Question> kept;
        serve([&](const Question& question) { kept.set_value(question); });
        const fake::Answer answer;
        (*client)->call(client->to(name, "Ask", std::string("text")), fake::Soon(), answer.taker());
        const Question question = kept.get_future().get();
        if (closed) {
            (*server)->close("because");
        } else {
            server.reset();
        }
        fake::LogCapture log;
        question.reply(std::string("nobody hears it"));
        question.fail({"a.b.Error", ""});
        EXPECT_EQ(*question.message().readOne<std::string>(), "text");
        EXPECT_EQ(answer.error(), error::kNoReply);  // as the bus says
        EXPECT_EQ(log.count("An answer"), 0U);
    }
}

TEST_F(QuestionTest, IsReadAndAnsweredByAThreadWhileTheConnectionGoes) {
    std::promise<Question> kept;
    serve([&](const Question& question) { kept.set_value(question); });
    const fake::Answer answer;
    (*client)->call(client->to(name, "Ask", std::string(1'000'000, 'x')), fake::Soon(), answer.taker());
    std::thread reader([question = kept.get_future().get()] {
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(question.message().readOne<std::string>()->size(), 1'000'000U);
        }
        question.reply(std::string("late"));
    });
    server.reset();
    reader.join();
    EXPECT_EQ(answer.error(), error::kNoReply);
}

TEST_F(QuestionTest, IsRefusedByTheLibraryWhereNobodyIsAsked) {
    serve(nullptr);
    EXPECT_EQ(refusal(), error::kUnknownObject);
}

TEST_F(QuestionTest, WhetherThePeerIsAliveIsAnsweredByTheLibrary) {
    std::atomic<int> asked{0};
    serve([&](const Question& /*question*/) { ++asked; });
    EXPECT_TRUE((*client)->callAndWait((*client)->newCall(name, "/", "org.freedesktop.DBus.Peer", "Ping"),
                                       fake::Soon()));
    EXPECT_EQ(asked, 0);
}

}  // namespace
