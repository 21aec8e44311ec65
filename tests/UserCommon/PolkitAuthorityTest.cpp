#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <QFile>
#include <QXmlStreamReader>
#include <future>
#include <map>
#include <stdexcept>

#include "MockPolkit.h"
#include "linux_usercommon/PolkitAuthority.h"
#include "support/Environment.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"
#include "support/MuteSocket.h"
#include "support/PrivateBus.h"
#include "support/WaitFor.h"

namespace {

using namespace std::chrono_literals;
using cmn::AuthorizationFlags;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr const char* kNotAuthorized = "org.freedesktop.PolicyKit1.Error.NotAuthorized";

class PolkitAuthorityTest : public testing::Test {
 protected:
    ~PolkitAuthorityTest() override {
        if (HasFailure()) {
            std::cerr << log.text();
        }
    }

    MockPolkit& mock(MockPolkit::Handler onCheck) {
        mock_ = std::make_unique<MockPolkit>(bus.address(), std::move(onCheck));
        return *mock_;
    }
    MockPolkit& mockThatGrants() { return mock(MockPolkit::answering({true, false, {}})); }

    static cmn::AuthorizationRequest request(AuthorizationFlags flags, const std::string& message = "") {
        return {{"com.tessarin.installation", "", 0, 0}, {"prompt", message, message.size(), 0}, flags};
    }

    // Empty when the right was granted, else why not. There is no event loop on this thread meanwhile.
    std::string refusal(AuthorizationFlags flags = AuthorizationFlags::interactionAllowedAndExtendRights,
                        const std::string& message = "") const {
        try {
            EXPECT_NE(cmn::PolkitAuthority(options).obtain(request(flags, message)), nullptr);
            return "";
        } catch (const std::runtime_error& e) {
            EXPECT_STRNE(e.what(), "");
            return e.what();
        }
    }

    void endAuthority() { mock_.reset(); }
    // A question that has arrived; what comes of it.
    std::future<std::string> beginToAsk(
        MockPolkit& polkit,
        AuthorizationFlags flags = AuthorizationFlags::interactionAllowedAndExtendRights) {
        auto asking = std::async(std::launch::async, [this, flags] { return refusal(flags); });
        EXPECT_TRUE(fake::WaitInHandler([&] { return polkit.calls("CheckAuthorization").size() == 1; }));
        return asking;
    }
    // A bus that says no more than that when it is greeted.
    void expectUnreachable(std::string_view answer) {
        const fake::TemporaryFolder folder;
        const fake::MuteSocket socket(folder / "bus", true, answer);
        options.busAddress = "unix:path=" + (folder / "bus").string();
        options.busDeadline = 500ms;
        EXPECT_THAT(refusal(), StartsWith("the message bus cannot be reached: "));
    }

    fake::LogCapture log;
    fake::PrivateBus bus;
    cmn::PolkitOptions options{bus.address()};

 private:
    std::unique_ptr<MockPolkit> mock_;
};

TEST_F(PolkitAuthorityTest, GrantsWhatTheAuthorityGrants) {
    MockPolkit& polkit = mockThatGrants();
    EXPECT_EQ(refusal(), "");
    const auto calls = polkit.calls("CheckAuthorization");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].path, "/org/freedesktop/PolicyKit1/Authority");
    EXPECT_EQ(calls[0].interface, "org.freedesktop.PolicyKit1.Authority");
    EXPECT_EQ(calls[0].signature, "(sa{sv})sa{ss}us");
    EXPECT_THAT(polkit.calls("CancelCheckAuthorization"), IsEmpty());
}

TEST_F(PolkitAuthorityTest, AsksForTheActionOfTheRightsNameOnBehalfOfItsOwnBusName) {
    MockPolkit& polkit = mockThatGrants();
    EXPECT_EQ(refusal(), "");
    ASSERT_EQ(polkit.checks().size(), 1U);
    const MockPolkit::Check check = polkit.checks()[0];
    EXPECT_EQ(check.subjectKind, "system-bus-name");
    EXPECT_EQ(check.subjectName, check.sender);
    EXPECT_THAT(check.sender, StartsWith(":"));
    EXPECT_EQ(check.subjectSize, 1);
    EXPECT_EQ(check.action, "com.tessarin.installation");
    EXPECT_NE(check.cancellationId, "");
}

TEST_F(PolkitAuthorityTest, TheUserMayBeAskedExactlyWhenInteractionIsAllowed) {
    MockPolkit& polkit = mockThatGrants();
    for (const auto flags :
         {AuthorizationFlags::none, AuthorizationFlags::interactionAllowed, AuthorizationFlags::extendRights,
          AuthorizationFlags::interactionAllowedAndExtendRights}) {
        EXPECT_EQ(refusal(flags), "");
    }
    std::vector<unsigned> flags;
    for (const MockPolkit::Check& check : polkit.checks()) {
        flags.push_back(check.flags);
    }
    EXPECT_THAT(flags, ElementsAre(0, 1, 0, 1));
}

TEST_F(PolkitAuthorityTest, TheWholeMessageGoesToTheAuthority) {
    MockPolkit& polkit = mockThatGrants();
    const std::string message = "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\xA6\x8A?";
    EXPECT_EQ(refusal(AuthorizationFlags::interactionAllowed, message), "");
    ASSERT_EQ(polkit.checks().size(), 1U);
    EXPECT_THAT(polkit.checks()[0].details, ElementsAre(Pair("polkit.message", message)));
}

TEST_F(PolkitAuthorityTest, AMessageThatIsNoUtf8IsRepaired) {
    MockPolkit& polkit = mockThatGrants();
    EXPECT_EQ(refusal(AuthorizationFlags::interactionAllowed, "a\xFFz"), "");
    ASSERT_EQ(polkit.checks().size(), 1U);
    EXPECT_THAT(polkit.checks()[0].details, ElementsAre(Pair("polkit.message", "a\xEF\xBF\xBDz")));
}

TEST_F(PolkitAuthorityTest, AnEmptyMessageLeavesTheActionsOwn) {
    MockPolkit& polkit = mockThatGrants();
    EXPECT_EQ(refusal(), "");
    ASSERT_EQ(polkit.checks().size(), 1U);
    EXPECT_THAT(polkit.checks()[0].details, IsEmpty());
}

TEST_F(PolkitAuthorityTest, SaysWhyARightIsNotGranted) {
    constexpr auto kAsking = AuthorizationFlags::interactionAllowedAndExtendRights;
    constexpr auto kSilent = AuthorizationFlags::extendRights;
    mock(MockPolkit::answering({false, false, {}}));
    EXPECT_EQ(refusal(kAsking), "com.tessarin.installation was refused");
    EXPECT_EQ(refusal(kSilent), "com.tessarin.installation was refused");
    endAuthority();
    mock(MockPolkit::answering({false, false, {{"polkit.dismissed", "true"}}}));
    EXPECT_EQ(refusal(kAsking), "the user dismissed the question for com.tessarin.installation");
    endAuthority();
    mock(MockPolkit::answering({false, true, {{"polkit.retains_authorization_after_challenge", "1"}}}));
    EXPECT_EQ(refusal(kSilent),
              "com.tessarin.installation needs the user's consent, and the user was not to be asked");
    EXPECT_EQ(refusal(kAsking),
              "com.tessarin.installation needs the user's consent, and the session has nobody who could ask "
              "for it");
}

TEST_F(PolkitAuthorityTest, AsksAgainWithoutTheMessageWhenTheAuthorityTakesNone) {
    MockPolkit& polkit = mock([](const QDBusMessage& question, const QDBusConnection& connection) {
        const bool hasDetails =
            !MockPolkit::Check({"", "", "", "", "", question.arguments(), true}).details.empty();
        (hasDetails ? MockPolkit::failing(kNotAuthorized, "Only trusted callers can pass details")
                    : MockPolkit::answering({true, false, {}}))(question, connection);
    });
    EXPECT_EQ(refusal(AuthorizationFlags::interactionAllowed, "Install it?"), "");
    const auto checks = polkit.checks();
    ASSERT_EQ(checks.size(), 2U);
    EXPECT_EQ(checks[0].details.size(), 1U);
    EXPECT_THAT(checks[1].details, IsEmpty());
    EXPECT_EQ(checks[1].action, checks[0].action);
    EXPECT_EQ(checks[1].flags, checks[0].flags);
    EXPECT_EQ(checks[1].subjectName, checks[0].subjectName);
    EXPECT_NE(checks[1].cancellationId, checks[0].cancellationId);
    EXPECT_EQ(log.count("The authority does not take the message of this caller"), 1U);
}

TEST_F(PolkitAuthorityTest, DoesNotAskAgainWhenTheAuthorityDistrustsTheCallerAnyhow) {
    MockPolkit& polkit = mock(MockPolkit::failing(kNotAuthorized, "You are not trusted"));
    EXPECT_THAT(refusal(), AllOf(HasSubstr("You are not trusted"), HasSubstr(kNotAuthorized)));
    EXPECT_EQ(polkit.checks().size(), 1U);
    EXPECT_THAT(refusal(AuthorizationFlags::none, "Install it?"), HasSubstr("You are not trusted"));
    EXPECT_EQ(polkit.checks().size(), 3U);
}

TEST_F(PolkitAuthorityTest, PassesOnWhatTheAuthorityComplainsAbout) {
    mock(MockPolkit::failing("org.freedesktop.PolicyKit1.Error.Failed", "Action is not registered"));
    EXPECT_EQ(refusal(),
              "the authority cannot answer: Action is not registered "
              "(org.freedesktop.PolicyKit1.Error.Failed)");
}

TEST_F(PolkitAuthorityTest, AnAnswerOfAnotherShapeGrantsNothing) {
    mock([](const QDBusMessage& question, const QDBusConnection& connection) {
        connection.send(question.createReply(true));
    });
    EXPECT_EQ(refusal(), "the authority's answer has the unexpected signature \"b\"");
    endAuthority();
    mock([](const QDBusMessage& question, const QDBusConnection& connection) {
        connection.send(question.createReply());
    });
    EXPECT_EQ(refusal(), "the authority's answer has the unexpected signature \"\"");
}

TEST_F(PolkitAuthorityTest, AQuestionThatNobodyAnswersInTimeIsWithdrawn) {
    MockPolkit& polkit = mock(MockPolkit::hanging());
    options.silentDeadline = 200ms;
    options.interactiveDeadline = 300ms;
    EXPECT_EQ(refusal(AuthorizationFlags::extendRights), "no answer from the authority within 200 ms");
    EXPECT_EQ(refusal(AuthorizationFlags::interactionAllowed), "no answer from the authority within 300 ms");
    const auto checks = polkit.checks();
    const auto withdrawals = polkit.calls("CancelCheckAuthorization");
    ASSERT_EQ(checks.size(), 2U);
    ASSERT_EQ(withdrawals.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(withdrawals[i].signature, "s");
        EXPECT_EQ(withdrawals[i].arguments.at(0).toString().toStdString(), checks[i].cancellationId);
        EXPECT_EQ(withdrawals[i].sender, checks[i].sender) << "polkit takes it from the asker only";
    }
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatHangsAltogetherIsGivenUp) {
    MockPolkit& polkit = mock(MockPolkit::hanging());
    polkit.answersWithdrawals = false;
    options.silentDeadline = 200ms;
    options.busDeadline = 2s;
    EXPECT_EQ(refusal(AuthorizationFlags::extendRights), "no answer from the authority within 200 ms");
    EXPECT_TRUE(fake::WaitInHandler([&] { return polkit.calls("CancelCheckAuthorization").size() == 1; }));
    EXPECT_EQ(log.count("The question to the authority was not withdrawn"), 1U);
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatEndsWhileItIsAskedIsAFailure) {
    MockPolkit& polkit = mock(MockPolkit::hanging());
    auto asking = beginToAsk(polkit);
    endAuthority();
    EXPECT_EQ(asking.get(), "the authority left the message bus while it was asked");
    mockThatGrants();
    EXPECT_EQ(refusal(), "") << "the next one is asked again";
}

TEST_F(PolkitAuthorityTest, WithoutAnAuthorityNothingIsGranted) {
    EXPECT_THAT(refusal(), AllOf(StartsWith("there is no authority on the message bus: "),
                                 HasSubstr(MockPolkit::kName)));
}

TEST_F(PolkitAuthorityTest, AnAuthorityIsStartedAndOneThatDoesNotComeInTimeIsGivenUp) {
    const fake::PrivateBus starting(fake::PrivateBus::WithService{MockPolkit::kName});
    options.busAddress = starting.address();
    options.silentDeadline = 300ms;
    EXPECT_EQ(refusal(AuthorizationFlags::extendRights), "no answer from the authority within 300 ms");
    EXPECT_TRUE(fake::WaitInHandler([&] { return starting.serviceWasStarted(); }));
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatCannotBeStartedIsAbsent) {
    for (const char* error :
         {"org.freedesktop.DBus.Error.Spawn.ChildExited", "org.freedesktop.DBus.Error.TimedOut"}) {
        mock(MockPolkit::failing(error, "it did not start"));
        EXPECT_EQ(refusal(), "there is no authority on the message bus: it did not start");
        endAuthority();
    }
}

TEST_F(PolkitAuthorityTest, WithoutABusNothingIsGranted) {
    bus.kill();
    EXPECT_THAT(refusal(), AllOf(StartsWith("the message bus cannot be reached: "), HasSubstr(bus.socket())));
    bus.start();
    mockThatGrants();
    EXPECT_EQ(refusal(), "") << "a bus that came back";
}

TEST_F(PolkitAuthorityTest, ABusThatHangsIsGivenUp) {
    options.busDeadline = 200ms;
    bus.freeze();
    EXPECT_THAT(refusal(), AllOf(StartsWith("the message bus cannot be reached: "),
                                 HasSubstr("no answer within 200 ms")));
    bus.thaw();
    options.busDeadline = 20s;
    mockThatGrants();
    EXPECT_EQ(refusal(), "");
}

TEST_F(PolkitAuthorityTest, ABusThatHangsAfterTheGreetingIsGivenUp) {
    expectUnreachable(fake::MuteSocket::kOk);
}

TEST_F(PolkitAuthorityTest, ABusThatLetsNobodyInIsGivenUp) {
    expectUnreachable("REJECTED KERBEROS_V4\r\n");
}

TEST_F(PolkitAuthorityTest, ABusThatHangsWhileTheAuthorityIsAskedIsGivenUp) {
    MockPolkit& polkit = mock(MockPolkit::hanging());
    options.silentDeadline = 2s;
    options.busDeadline = 2s;
    auto asking = beginToAsk(polkit, AuthorizationFlags::extendRights);
    bus.freeze();
    EXPECT_EQ(asking.get(), "no answer from the authority within 2000 ms");
    EXPECT_EQ(log.count("The question to the authority was not withdrawn"), 1U);
    bus.thaw();
}

TEST_F(PolkitAuthorityTest, ABusThatEndsWhileTheAuthorityIsAskedIsAFailure) {
    MockPolkit& polkit = mock(MockPolkit::hanging());
    auto asking = beginToAsk(polkit);
    bus.kill();
    EXPECT_EQ(asking.get(), "the message bus was lost while the authority was asked");
}

TEST_F(PolkitAuthorityTest, SeveralThreadsMayAskAtOnce) {
    MockPolkit& polkit = mockThatGrants();
    cmn::PolkitAuthority authority(options);
    constexpr int kThreads = 4;
    std::atomic<int> granted{0};
    fake::InThreads(kThreads, [&](int) {
        granted += authority.obtain(request(AuthorizationFlags::none, "Install it?")) ? 1 : 0;
    });
    EXPECT_EQ(granted, kThreads);
    EXPECT_EQ(polkit.checks().size(), std::size_t{kThreads});
}

TEST_F(PolkitAuthorityTest, LeavesTheBusWithTheAnswer) {
    MockPolkit& polkit = mockThatGrants();
    EXPECT_EQ(refusal(), "");
    ASSERT_EQ(polkit.checks().size(), 1U);
    const std::string name = polkit.checks()[0].sender;
    EXPECT_TRUE(fake::WaitInHandler([&] { return !polkit.peer().hasOwner(name); }));
}

TEST_F(PolkitAuthorityTest, TheSystemsAuthorityIsAskedOnTheSystemBus) {
    const fake::Environment systemBus("DBUS_SYSTEM_BUS_ADDRESS", bus.address());
    const auto authority = cmn::SystemAuthorizationAuthority();
    {
        MockPolkit& polkit = mockThatGrants();
        EXPECT_NE(cmn::AuthorizationUtils::authorizationForRootAction(*authority, false), nullptr);
        ASSERT_EQ(polkit.checks().size(), 1U);
        EXPECT_EQ(polkit.checks()[0].action, "system.privilege.admin");
        EXPECT_EQ(polkit.checks()[0].flags, 0U);
    }
    endAuthority();
    EXPECT_EQ(cmn::AuthorizationUtils::authorizationForRootAction(*authority, true), nullptr);
    EXPECT_TRUE(log.contains(
        "Failed to authorize Installer Privileged Helper -- there is no authority on the message bus: "));
}

// Who may do what, by action; nothing when the file is not well-formed.
std::map<std::string, std::map<std::string, std::string>> ReadPolicy(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    QXmlStreamReader reader(&file);
    std::map<std::string, std::map<std::string, std::string>> actions;
    std::string action;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        const std::string name = reader.name().toString().toStdString();
        if (name == "action") {
            action = reader.attributes().value("id").toString().toStdString();
        } else if (name.starts_with("allow_") || name == "message" || name == "description") {
            actions[action][name] = reader.readElementText().toStdString();
        }
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
    return actions;
}

TEST(PolkitPolicyTest, EveryRightIsAnActionThatAnAdministratorHasToAllow) {
    const auto actions = ReadPolicy(QStringLiteral(TESSARIN_POLKIT_POLICY));
    EXPECT_EQ(actions.size(), 2U);
    for (const char* right : {cmn::kRootActionRight, cmn::kInstallationRight}) {
        ASSERT_EQ(actions.count(right), 1U) << right;
        auto action = actions.at(right);
        EXPECT_EQ(action["allow_any"], "no");
        EXPECT_EQ(action["allow_inactive"], "auth_admin");
        EXPECT_EQ(action["allow_active"], "auth_admin");
        EXPECT_NE(action["message"], "");
        EXPECT_NE(action["description"], "");
    }
}

}  // namespace
