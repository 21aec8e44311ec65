#include <gtest/gtest.h>

#include <future>

#include "FinderExtensionBusFixture.h"

// A Finder extension service that is absent, slow, wrong or gone.
namespace {

using namespace std::chrono_literals;
using fake::WaitFor;
using fake::WaitInHandler;
using testing::Contains;
using testing::IsEmpty;

class FinderExtensionLossTest : public FinderExtensionBusFixture {};

TEST_F(FinderExtensionLossTest, WithoutAServiceEveryRequestGetsItsNeutralAnswer) {
    const auto client = startClient();
    expectNeutralAnswers(*client);
    EXPECT_TRUE(WaitFor([&] {
        return std::ranges::count(systemLog.lines(), "FinderExtensionXPCClient -- did invalidate") > 0;
    }));
}

TEST_F(FinderExtensionLossTest, AServiceThatAnswersTheVersionOnlyGivesNeutralAnswers) {
    const auto service = startService([&](const QDBusMessage& asked, const QDBusConnection& connection) {
        received.add(asked);
        if (asked.member() == QLatin1String("Version")) {
            connection.send(asked.createReply(QStringLiteral("1.0")));
        }
    });
    const auto client = startConnectedClient();
    expectNeutralAnswers(*client);
    EXPECT_TRUE(client->connected()) << "it does answer";
    EXPECT_TRUE(WaitFor([&] { return received.all("GetUIVisibilityStatuses").size() == 1; }));
}

TEST_F(FinderExtensionLossTest, AServiceThatAnswersNothingIsNeverConnected) {
    const auto service =
        startService([&](const QDBusMessage& asked, const QDBusConnection&) { received.add(asked); });
    const auto client = startClient(1.0 / 10);
    ASSERT_TRUE(WaitFor([&] { return received.all("Version").size() == 1; }));
    expectNeutralAnswers(*client);
    EXPECT_FALSE(client->connected());
    EXPECT_TRUE(WaitFor([&] { return received.all("Version").size() == 6; }));
    EXPECT_THAT(received.all("Decrypt"), IsEmpty());
}

TEST_F(FinderExtensionLossTest, AServiceThatAnswersWithOtherTypesGivesNeutralAnswersAndALine) {
    const auto service = startService([&](const QDBusMessage& asked, const QDBusConnection& connection) {
        received.add(asked);
        connection.send(asked.createReply(
            asked.member() == QLatin1String("Version") ? QVariant(QStringLiteral("1.0")) : QVariant(2.5)));
    });
    const auto client = startConnectedClient();
    expectNeutralAnswers(*client);
    ASSERT_TRUE(WaitFor([&] { return systemLog.lines().size() >= 5; }));
    EXPECT_THAT(systemLog.lines(),
                testing::Each(testing::StartsWith("Failed to get remote object -- "
                                                  "org.freedesktop.DBus.Error.InvalidArgs: ")));
}

TEST_F(FinderExtensionLossTest, AServiceWithAnotherVersionTypeIsNeverConnected) {
    const auto service = startService([](const QDBusMessage& asked, const QDBusConnection& connection) {
        connection.send(asked.createReply(QVariantList{1.0}));
    });
    const auto client = startClient();
    EXPECT_TRUE(WaitFor([&] {
        return !systemLog.lines().empty() &&
               systemLog.lines()[0].starts_with("Remote object proxy error --  com.tessarin.FinderExtension");
    }));
    expectNeutralAnswers(*client);
    EXPECT_FALSE(client->connected());
}

TEST_F(FinderExtensionLossTest, AServiceThatIsSlowButInTimeIsHeard) {
    const auto service = startService(goodService(99ms));
    const auto client = startPatientClient();
    EXPECT_EQ(client->decrypt("/d"), 7);
    EXPECT_TRUE(client->checkFullDiskAccess());
}

TEST_F(FinderExtensionLossTest, AServiceThatIsTooSlowIsNotWaitedForAndItsLateAnswerDoesNoHarm) {
    std::atomic<bool> release{false};
    std::atomic<int> answered{0};
    const auto service = startService([&](const QDBusMessage& asked, const QDBusConnection& connection) {
        if (asked.member() == QLatin1String("Decrypt")) {
            EXPECT_TRUE(WaitInHandler([&] { return release.load(); }));  // as if for ten seconds
            ++answered;
        }
        connection.send(asked.createReply(asked.member() == QLatin1String("Version")
                                              ? QVariant(QStringLiteral("1.0"))
                                              : answerTo(asked.member())));
    });
    const auto client = startConnectedClient();
    EXPECT_EQ(client->decrypt("/d"), 2);
    EXPECT_FALSE(client->checkFullDiskAccess()) << "it is still busy";
    release = true;
    EXPECT_TRUE(WaitFor([&] { return client->checkFullDiskAccess(); }));
    EXPECT_EQ(answered, 1);
    EXPECT_THAT(systemLog.lines(), IsEmpty());
}

TEST_F(FinderExtensionLossTest, AFrozenBusHoldsUpNobodyForLong) {
    const auto server = startServer();
    const auto client = startPatientClient();
    const auto impatient = startConnectedClient();
    bus.freeze();
    const auto start = std::chrono::steady_clock::now();
    expectNeutralAnswers(*impatient);
    impatient->checkEncryptionStatus("/e");
    impatient->sendLogMessage("text", "Info");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s) << "half a second and what the machine needs";
    bus.thaw();
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionLossTest, AnInterruptedClientComesBack) {
    auto server = startServer();
    const auto client = startPatientClient();
    server->stop();
    ASSERT_TRUE(WaitFor([&] { return !client->connected(); }));
    EXPECT_THAT(systemLog.lines(), Contains("FinderExtensionXPCClient -- interrupt"));
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionLossTest, AStoppedClientComesBack) {
    const auto server = startServer();
    const auto client = startPatientClient();
    client->stop();
    ASSERT_TRUE(WaitFor([&] {
        return std::ranges::count(systemLog.lines(), "FinderExtensionXPCClient -- did invalidate") == 1;
    }));
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionLossTest, AClientSurvivesTheLossOfTheBus) {
    auto server = startServer();
    const auto client = startPatientClient();
    bus.kill();
    ASSERT_TRUE(WaitFor([&] { return !client->connected(); }));
    bus.start();
    server = startServer();
    ASSERT_TRUE(WaitFor([&] { return client->connected(); }));
    EXPECT_EQ(client->decrypt("/four"), 5);
}

TEST_F(FinderExtensionLossTest, EndsWhileAnswersAreOnTheirWayHarmNobody) {
    for (int i = 0; i < 1000; ++i) {
        scanner->many.push_back({{"Name", "classifier " + std::to_string(i)}, {"MatchCount", "1"}});
    }
    std::atomic<bool> ended{false};
    std::atomic<int> answered{0};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, client = startClient()] {
            while (!ended) {
                const auto records = client->getFileFilters("/many");
                answered += records.empty() ? 0 : 1;
                wrong += records.empty() || records == scanner->many ? 0 : 1;
            }
        });
    }
    for (int round = 0; round < 10; ++round) {
        auto server = startServer();
        const int before = answered;
        EXPECT_TRUE(WaitFor([&] { return answered > before; })) << round;
        if (round % 3 == 2) {
            bus.kill();
            bus.start();
        } else {
            server->stop();
        }
        const std::weak_ptr<cmn::FinderExtensionObjCXPCServer> weakServer = server;
        server.reset();
        EXPECT_TRUE(WaitFor([&] { return weakServer.expired(); })) << round;
    }
    const auto server = startServer();
    transport->stop();
    ended = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(FinderExtensionLossTest, AClientThatLeavesIsNoticed) {
    const auto server = startServer();
    startPatientClient().reset();
    EXPECT_TRUE(WaitFor([&] { return log.count("Not overridden") == 1; }));
}

TEST_F(FinderExtensionLossTest, AClientThatIsLetGoWithAnOpenCheckIsGone) {
    const auto service = startService(goodService());
    auto client = startPatientClient();
    client->checkEncryptionStatus("/e");
    ASSERT_TRUE(WaitFor([&] { return received.all("CheckEncryptionStatus").size() == 1; }));
    const std::weak_ptr<cmn::FinderExtensionXPCClient> weakClient = client;
    client.reset();
    EXPECT_TRUE(WaitFor([&] { return weakClient.expired(); }));
}

}  // namespace
