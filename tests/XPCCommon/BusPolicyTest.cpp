#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BusUsers.h"
#include "ServiceNames.h"

// The policy file on a system bus, seen by two ordinary users and root. What the bus itself refuses is
// answered with AccessDenied; the services here answer everything that reaches them.
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr const char* kFirst = BusUsers::kFirst;
constexpr const char* kSecond = BusUsers::kSecond;
constexpr const char* kNobody = BusUsers::kNobody;
constexpr const char* kRoot = BusUsers::kRoot;
constexpr const char* kDenied = "AccessDenied";
constexpr const char* kAnswer = "ok answer";

class BusPolicyTest : public testing::Test {
 protected:
    void SetUp() override {
        if (!BusUsers::canBePlayed()) {
            GTEST_SKIP() << "only root can play several users";
        }
        startBus();
    }

    void startBus(const std::string& otherRules = {}, const std::string& administratorsRules = {}) {
        bus = std::make_unique<fake::PrivateBus>(
            fake::PrivateBus::OfSystem{.policy = TESSARIN_BUS_POLICY,
                                       .otherRules = otherRules,
                                       .administratorsRules = administratorsRules});
        users = std::make_unique<BusUsers>(bus->address());
    }

    // Answers every call; its own name.
    std::string serve(const std::string& user, const std::vector<std::string>& names = {}) {
        std::vector<std::string> arguments{"serve"};
        arguments.insert(arguments.end(), names.begin(), names.end());
        serving.push_back(users->start(user, arguments));
        return serving.back()->readLine().value_or("");
    }
    void serveBoth() { ASSERT_NE(serve(kRoot, {kAgent, kFinder}), "") << serving.back()->errors(); }
    std::string own(const std::string& user, const std::string& name) {
        return users->call(user, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "RequestName", {"su", name, "4"});
    }
    // What has arrived there, and nothing later.
    static std::vector<std::string> arrived(fake::ChildProcess& service) {
        std::vector<std::string> members;
        service.closeInput();
        while (const auto line = service.readLine()) {
            members.push_back(*line);
        }
        return members;
    }

    std::unique_ptr<fake::PrivateBus> bus;
    std::unique_ptr<BusUsers> users;
    std::vector<std::unique_ptr<fake::ChildProcess>> serving;
};

TEST_F(BusPolicyTest, OnlyRootOwnsTheServices) {
    for (const char* name : {kAgent, kFinder}) {
        EXPECT_EQ(own(kFirst, name), kDenied);
        EXPECT_EQ(own(kNobody, name), kDenied);
        EXPECT_EQ(own(kRoot, name), "ok");
    }
    EXPECT_EQ(own(kRoot, "com.tessarin.Other"), kDenied);
}

TEST_F(BusPolicyTest, EveryUserMayCallEveryMethodOfBothServices) {
    serveBoth();
    const std::vector<std::vector<std::string>> ofAgent = {
        {"Version"}, {"SetURLExtractor", "o", "/a"}, {"SendURL", "ssi", "u", "Safari", "1"}};
    const std::vector<std::vector<std::string>> ofFinder = {{"Version"},
                                                            {"CheckEncryptionStatus", "so", "/f", "/"},
                                                            {"Decrypt", "s", "/f"},
                                                            {"GetScanResult", "s", "/f"},
                                                            {"AllowedExtensions"},
                                                            {"CheckFullDiskAccess"},
                                                            {"GetUIVisibilityStatuses"},
                                                            {"SendLogMessage", "ss", "m", "Info"}};
    for (const char* user : {kFirst, kSecond, kNobody, kRoot}) {
        for (const auto& method : ofAgent) {
            EXPECT_EQ(
                users->call(user, kAgent, kAgentPath, kAgent, method[0], {method.begin() + 1, method.end()}),
                kAnswer)
                << user << " " << method[0];
        }
        for (const auto& method : ofFinder) {
            EXPECT_EQ(users->call(user, kFinder, kFinderPath, kFinder, method[0],
                                  {method.begin() + 1, method.end()}),
                      kAnswer)
                << user << " " << method[0];
        }
    }
}

TEST_F(BusPolicyTest, WhatIsNoMethodOfTheServicesIsRefusedByTheBusItself) {
    ASSERT_NO_FATAL_FAILURE(serveBoth());
    struct Wrong {
        const char* path;
        const char* interface;
        const char* member;
    };
    for (const char* user : {kFirst, kRoot}) {
        for (const Wrong& wrong :
             {Wrong{kFinderPath, kFinder, "Encrypt"}, Wrong{kFinderPath, "com.example.Other", "Version"},
              Wrong{kFinderPath, kAgent, "SendURL"}, Wrong{"/", kFinder, "Version"},
              Wrong{kFinderPath, "-", "Version"},
              Wrong{kFinderPath, "org.freedesktop.DBus.Properties", "GetAll"},
              Wrong{kFinderPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"}}) {
            EXPECT_EQ(users->call(user, kFinder, wrong.path, wrong.interface, wrong.member), kDenied)
                << user << " " << wrong.interface << " " << wrong.member;
        }
        EXPECT_EQ(users->call(user, kAgent, kAgentPath, kAgent, "GetURL", {"s", "Safari"}), kDenied);
    }
    EXPECT_THAT(arrived(*serving.back()), ElementsAre()) << "nothing reached the service";
}

TEST_F(BusPolicyTest, TheServicesMayBeLookedAtAndPinged) {
    ASSERT_NO_FATAL_FAILURE(serveBoth());
    for (const char* service : {kAgent, kFinder}) {
        EXPECT_EQ(users->call(kFirst, service, "/", "org.freedesktop.DBus.Introspectable", "Introspect"),
                  kAnswer);
        // The library answers these by itself.
        EXPECT_EQ(users->call(kFirst, service, "/", "org.freedesktop.DBus.Peer", "Ping").substr(0, 2), "ok");
    }
}

TEST_F(BusPolicyTest, TheServicesUniqueNameIsNoWayAround) {
    const std::string name = serve(kRoot, {kFinder});
    EXPECT_EQ(users->call(kFirst, name, kFinderPath, kFinder, "Version"), kAnswer);
    EXPECT_EQ(users->call(kFirst, name, kFinderPath, kFinder, "Encrypt"), kDenied);
}

TEST_F(BusPolicyTest, SignalsForTheServicesDoNotArrive) {
    for (const auto& [service, path] : {std::pair{kAgent, kAgentPath}, std::pair{kFinder, kFinderPath}}) {
        serve(kRoot, {service});
        const auto signal = users->start(kFirst, {"signal", service, "Hello"});
        EXPECT_EQ(signal->wait(), 0);
        // The bus has read the signal before this call, since its sender was gone before that was sent.
        EXPECT_EQ(users->call(kFirst, service, path, service, "Version"), kAnswer);
        EXPECT_THAT(arrived(*serving.back()), ElementsAre("Version"));
    }
}

TEST_F(BusPolicyTest, AnotherFilesGenerosityOpensNeitherTheServicesNorTheirNames) {
    startBus(R"(<policy context="default"><allow own="*"/><allow send_destination="*"/></policy>)");
    for (const auto& [service, path] : {std::pair{kAgent, kAgentPath}, std::pair{kFinder, kFinderPath}}) {
        EXPECT_EQ(own(kFirst, service), kDenied);
        serve(kRoot, {service});
        EXPECT_EQ(users->call(kFirst, service, path, service, "Encrypt"), kDenied);
        EXPECT_EQ(users->call(kFirst, service, path, service, "Version"), kAnswer);
    }
}

TEST_F(BusPolicyTest, AnAdministratorNarrowsTheServicesToAGroup) {
    // As docs/security.md has it.
    startBus({}, R"(
      <policy context="default">
        <deny send_destination="com.tessarin.UserAgent"/>
        <deny send_destination="com.tessarin.FinderExtension"/>
      </policy>
      <policy group="daemon">
        <allow send_destination="com.tessarin.UserAgent" send_interface="com.tessarin.UserAgent"/>
        <allow send_destination="com.tessarin.FinderExtension" send_interface="com.tessarin.FinderExtension"/>
      </policy>)");
    ASSERT_NO_FATAL_FAILURE(serveBoth());
    for (const auto& [service, path] : {std::pair{kAgent, kAgentPath}, std::pair{kFinder, kFinderPath}}) {
        EXPECT_EQ(users->call(kFirst, service, path, service, "Version"), kAnswer)
            << "its group has his name";
        EXPECT_EQ(users->call(kSecond, service, path, service, "Version"), kDenied);
        EXPECT_EQ(users->call(kNobody, service, path, service, "Version"), kDenied);
    }
    const std::string agent = serve(kFirst);
    EXPECT_EQ(users->call(kRoot, agent, "/extractor", "com.tessarin.URLExtractor", "GetURL", {"s", "Safari"}),
              kAnswer);
}

TEST_F(BusPolicyTest, OnlyRootCallsWhatAUserHasRegistered) {
    const std::string agent = serve(kFirst);
    const auto getURL = [&](const char* user) {
        return users->call(user, agent, "/extractor", "com.tessarin.URLExtractor", "GetURL", {"s", "Safari"});
    };
    const auto didCheck = [&](const char* user) {
        return users->call(user, agent, "/delegate", "com.tessarin.FinderExtensionDelegate",
                           "DidCheckEncryptionStatus", {"b", "1"});
    };
    for (const char* user : {kFirst, kSecond, kNobody}) {
        EXPECT_EQ(getURL(user), kDenied) << user;
        EXPECT_EQ(didCheck(user), kDenied) << user;
        EXPECT_EQ(users->call(user, agent, "/extractor", "-", "GetURL", {"s", "Safari"}), kDenied) << user;
    }
    EXPECT_EQ(getURL(kRoot), kAnswer) << "and the answer comes back";
    EXPECT_EQ(didCheck(kRoot), kAnswer);
    EXPECT_EQ(users->call(kRoot, agent, "/extractor", "com.tessarin.URLExtractor", "SetURL"), kDenied);
    EXPECT_THAT(arrived(*serving.back()), ElementsAre("GetURL", "DidCheckEncryptionStatus"));
}

TEST_F(BusPolicyTest, AnAgentsAnswerReachesTheOwnerOfTheServices) {
    // To whose connection nothing else may be sent.
    const std::string agent = serve(kFirst);
    const auto daemon = users->start(kRoot, {"call", std::string("as=") + kAgent, agent, "/extractor",
                                             "com.tessarin.URLExtractor", "GetURL", "s", "Safari"});
    EXPECT_EQ(daemon->readLine(), kAnswer) << daemon->errors();
}

}  // namespace
