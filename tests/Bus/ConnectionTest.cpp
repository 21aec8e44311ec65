#include <gtest/gtest.h>
#include <unistd.h>

#include "BusLine.h"

namespace {

using namespace cmn::bus;

class ConnectionTest : public fake::WithBus {};

TEST_F(ConnectionTest, AnswersWhatItIsAsked) {
    const fake::BusLine server(loop, bus.address(), [](const Question& question) {
        const auto text = question.message().readOne<std::string>();
        if (text) {
            question.reply(fake::Records{{{"text", *text}, {"who", "server"}}, {}});
        } else {
            question.fail(text.error());
        }
    });
    const fake::BusLine client(loop, bus.address());
    ASSERT_TRUE(server.awaitReady() && client.awaitReady());
    const std::string name = server->uniqueName();

    const auto reply = client->callAndWait(client.to(name, "C", std::string("h\xc3\xa4\xff")), fake::Soon());
    ASSERT_TRUE(reply) << reply.error().message;
    const auto records = reply->readOne<fake::Records>();
    ASSERT_TRUE(records);
    EXPECT_EQ(*records, (fake::Records{{{"text", "h\xc3\xa4\xef\xbf\xbd"}, {"who", "server"}}, {}}));

    const auto wrong = client->callAndWait(client.to(name, "C", std::int32_t{1}), fake::Soon());
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.error().name, error::kInvalidArgs);
    EXPECT_EQ(wrong.error().message, "Its arguments are \"i\" instead of \"s\"");
}

TEST_F(ConnectionTest, KnowsThePeerThatTheBusVouchesFor) {
    const fake::BusLine line(loop, bus.address());
    ASSERT_TRUE(line.awaitReady());
    std::promise<Credentials> found;
    line->askCredentials(line->uniqueName(), [&](const Result<Credentials>& result) {
        found.set_value(result ? *result : Credentials{12345, 0});
    });
    const Credentials credentials = found.get_future().get();
    EXPECT_EQ(credentials.userID, geteuid());
    EXPECT_EQ(credentials.processID, getpid());
}

TEST_F(ConnectionTest, KnowsNoCredentialsOfNobody) {
    const fake::BusLine line(loop, bus.address());
    ASSERT_TRUE(line.awaitReady());
    std::promise<std::string> found;
    line->askCredentials(":1.987", [&](const Result<Credentials>& result) {
        found.set_value(result ? "somebody" : result.error().name);
    });
    EXPECT_EQ(found.get_future().get(), error::kNameHasNoOwner);
}

TEST_F(ConnectionTest, KnowsTheOwnerOfAName) {
    const fake::BusLine line(loop, bus.address());
    ASSERT_TRUE(line.awaitReady());
    const auto owner = [&] {
        std::promise<std::string> found;
        line->askOwner("a.Name", [&](const Result<std::optional<std::string>>& result) {
            found.set_value(result ? result->value_or("nobody") : result.error().name);
        });
        return found.get_future().get();
    };
    EXPECT_EQ(owner(), "nobody");
    const fake::Answer got;
    line->askBus("RequestName", got.taker(), std::string("a.Name"), std::uint32_t{4});
    ASSERT_TRUE(got.wait());
    EXPECT_EQ(owner(), line->uniqueName());
    line->close("enough");
    EXPECT_EQ(owner(), error::kDisconnected);
}

}  // namespace
