#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "usercommon/AuthorizationUtils.h"

// What every platform promises of the authorization utilities.
namespace {

using cmn::AuthorizationFlags;
using cmn::AuthorizationRequest;
using cmn::AuthorizationUtils;
using testing::EndsWith;
using testing::StartsWith;

class GrantedRight : public cmn::Authorization {};

// Grants everything unless it has a reason not to.
class FakeAuthority : public cmn::AuthorizationAuthority {
 public:
    std::shared_ptr<cmn::Authorization> obtain(const AuthorizationRequest& request) override {
        requests.push_back(request);
        if (refusal) {
            throw std::runtime_error(*refusal);
        }
        return granted;
    }

    const std::shared_ptr<cmn::Authorization> granted = std::make_shared<GrantedRight>();
    std::optional<std::string> refusal;
    std::vector<AuthorizationRequest> requests;
};

class AuthorizationUtilsTest : public testing::Test {
 protected:
    // The one request that was made.
    AuthorizationRequest request() const {
        EXPECT_EQ(authority.requests.size(), 1U);
        return authority.requests.empty() ? AuthorizationRequest() : authority.requests.front();
    }
    void expectAsked(const char* right, unsigned flags, const char* prompt) const {
        EXPECT_EQ(request().right.name, right);
        EXPECT_EQ(static_cast<unsigned>(request().flags), flags);
        EXPECT_EQ(request().prompt.value, prompt);
    }
    AuthorizationRequest requestWithMessage(const std::string& message) {
        AuthorizationUtils::askAuthorizationForRight(authority, "a.right", message);
        return request();
    }

    fake::LogCapture log;
    FakeAuthority authority;
};

TEST_F(AuthorizationUtilsTest, InteractiveRootActionAsksForTheAdministratorRightAndMayAskTheUser) {
    EXPECT_EQ(AuthorizationUtils::authorizationForRootAction(authority, true), authority.granted);
    expectAsked("system.privilege.admin", 3, "");
}

TEST_F(AuthorizationUtilsTest, RootActionThatIsNotInteractiveNeverAsksTheUser) {
    EXPECT_EQ(AuthorizationUtils::authorizationForRootAction(authority, false), authority.granted);
    expectAsked("system.privilege.admin", 2, "");
}

TEST_F(AuthorizationUtilsTest, RightAloneIsAskedForWithAnEmptyMessageAndMayAskTheUser) {
    EXPECT_EQ(AuthorizationUtils::askAuthorizationForRight(authority, cmn::kInstallationRight),
              authority.granted);
    expectAsked("com.tessarin.installation", 3, "");
}

TEST_F(AuthorizationUtilsTest, RightWithAMessageMayAskTheUser) {
    EXPECT_EQ(AuthorizationUtils::askAuthorizationForRight(authority, "a.right", "Install it?"),
              authority.granted);
    expectAsked("a.right", 3, "Install it?");
}

TEST_F(AuthorizationUtilsTest, FlagsOfTheCallerAreKept) {
    for (const auto flags : {AuthorizationFlags::none, AuthorizationFlags::interactionAllowed,
                             AuthorizationFlags::extendRights}) {
        AuthorizationUtils::askAuthorizationForRight(authority, "a.right", "Install it?", flags);
        EXPECT_EQ(authority.requests.back().flags, flags);
    }
    EXPECT_EQ(authority.requests.size(), 3U);
}

TEST_F(AuthorizationUtilsTest, TheRightIsAnItemWithoutValueAndFlags) {
    const cmn::AuthorizationItem right = requestWithMessage("Install it?").right;
    EXPECT_EQ(right.value, "");
    EXPECT_EQ(right.valueLength, 0U);
    EXPECT_EQ(right.flags, 0U);
}

TEST_F(AuthorizationUtilsTest, TheMessageIsAnItemNamedPromptWithoutFlags) {
    const cmn::AuthorizationItem prompt = requestWithMessage("Install it?").prompt;
    EXPECT_EQ(prompt.name, "prompt");
    EXPECT_EQ(prompt.flags, 0U);
}

TEST_F(AuthorizationUtilsTest, AnEmptyMessageHasTheLengthZero) {
    EXPECT_EQ(requestWithMessage("").prompt.valueLength, 0U);
}

TEST_F(AuthorizationUtilsTest, TheLengthOfAPlainMessageIsItsByteCount) {
    EXPECT_EQ(requestWithMessage("Install it?").prompt.valueLength, 11U);
}

TEST_F(AuthorizationUtilsTest, TheLengthOfAMessageCountsUtf16UnitsAndNotItsBytes) {
    const std::string message = "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\xA6\x8A";
    EXPECT_EQ(requestWithMessage(message).prompt.value, message);
    EXPECT_EQ(request().prompt.valueLength, 6U);
}

TEST_F(AuthorizationUtilsTest, AMessageThatIsNoUtf8IsAskedWithAllTheSame) {
    const std::string message = "a\xFF\xC3";
    EXPECT_EQ(requestWithMessage(message).prompt.value, message);
    EXPECT_EQ(request().prompt.valueLength, 3U);
}

TEST_F(AuthorizationUtilsTest, ARefusalIsAnErrorInTheLogAndNoResult) {
    authority.refusal = "the user said no";
    EXPECT_EQ(AuthorizationUtils::authorizationForRootAction(authority, true), nullptr);
    EXPECT_EQ(AuthorizationUtils::authorizationForRootAction(authority, false), nullptr);
    EXPECT_EQ(AuthorizationUtils::askAuthorizationForRight(authority, "a.right"), nullptr);
    EXPECT_EQ(AuthorizationUtils::askAuthorizationForRight(authority, "a.right", "Install it?"), nullptr);
    EXPECT_EQ(
        AuthorizationUtils::askAuthorizationForRight(authority, "a.right", "", AuthorizationFlags::none),
        nullptr);
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), 5U);
    for (const std::string& line : lines) {
        EXPECT_THAT(line, StartsWith("[ERROR]"));
        EXPECT_THAT(line,
                    EndsWith(" -- Failed to authorize Installer Privileged Helper -- the user said no"));
    }
}

TEST_F(AuthorizationUtilsTest, AReasonWithBracesIsLoggedAsItIs) {
    authority.refusal = "{} {0} {";
    EXPECT_EQ(AuthorizationUtils::askAuthorizationForRight(authority, "a.right"), nullptr);
    EXPECT_TRUE(log.contains("Failed to authorize Installer Privileged Helper -- {} {0} {"));
}

TEST_F(AuthorizationUtilsTest, AGrantedRightIsNotMentionedInTheLog) {
    EXPECT_NE(AuthorizationUtils::authorizationForRootAction(authority, true), nullptr);
    EXPECT_EQ(log.lines().size(), 0U);
}

}  // namespace
