#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <mutex>
#include <vector>

#include "linux_bus/Connection.h"
#include "support/PrivateBus.h"
#include "support/WaitFor.h"

namespace {

using namespace cmn::bus;
using namespace std::chrono_literals;

using Records = std::vector<std::map<std::string, std::string>>;

// One connection, and what it tells.
struct Line {
    explicit Line(const std::shared_ptr<Loop>& loop, const std::string& address,
                  std::function<void(Question)> asked = nullptr, Options options = {}) {
        options.address = address;
        connection = Connection::open(loop, options,
                                      {[this] { ++ready; },
                                       [this](const std::string& why) {
                                           const std::lock_guard lock(mutex);
                                           reason = why;
                                           ++lost;
                                       },
                                       std::move(asked)});
    }

    std::atomic<int> ready{0};
    std::atomic<int> lost{0};
    std::mutex mutex;
    std::string reason;
    std::shared_ptr<Connection> connection;
};

class ConnectionTest : public testing::Test {
 protected:
    ~ConnectionTest() override { loop->stop(); }

    fake::PrivateBus bus;
    std::shared_ptr<Loop> loop = std::make_shared<Loop>();
};

Deadline Soon() {
    return Clock::now() + 20s;
}

TEST_F(ConnectionTest, AnswersWhatItIsAsked) {
    Line server(loop, bus.address(), [](const Question& question) {
        const auto text = question.message().readOne<std::string>();
        if (text) {
            question.reply(Records{{{"text", *text}, {"who", "server"}}, {}});
        } else {
            question.fail(text.error());
        }
    });
    Line client(loop, bus.address());
    ASSERT_TRUE(fake::WaitFor([&] { return server.ready == 1 && client.ready == 1; }));
    const std::string name = server.connection->uniqueName();

    const auto reply = client.connection->callAndWait(
        client.connection->makeCall(name, "/a", "a.B", "C", std::string("h\xc3\xa4\xff")), Soon());
    ASSERT_TRUE(reply) << reply.error().message;
    const auto records = reply->readOne<Records>();
    ASSERT_TRUE(records);
    EXPECT_EQ(*records, (Records{{{"text", "h\xc3\xa4\xef\xbf\xbd"}, {"who", "server"}}, {}}));

    const auto wrong = client.connection->callAndWait(
        client.connection->makeCall(name, "/a", "a.B", "C", std::int32_t{1}), Soon());
    ASSERT_FALSE(wrong);
    EXPECT_EQ(wrong.error().name, error::kInvalidArgs);
    EXPECT_EQ(wrong.error().message, "Its arguments are \"i\" instead of \"s\"");
}

TEST_F(ConnectionTest, KnowsThePeerThatTheBusVouchesFor) {
    Line line(loop, bus.address());
    ASSERT_TRUE(fake::WaitFor([&] { return line.ready == 1; }));
    std::promise<Credentials> found;
    line.connection->askCredentials(line.connection->uniqueName(), [&](const Result<Credentials>& result) {
        found.set_value(result ? *result : Credentials{12345, 0});
    });
    const Credentials credentials = found.get_future().get();
    EXPECT_EQ(credentials.userID, geteuid());
    EXPECT_EQ(credentials.processID, getpid());
}

}  // namespace
