#include <gmock/gmock.h>
#import <objc/runtime.h>

#include <optional>
#include <string>

#import "common_mac/FoundationBridges.h"
#import "macos_usercommon/AuthorizationUtils.h"
#include "support/LogCapture.h"

// The utilities as other programs use them; what the platform is asked for is answered by the test.
namespace {

struct Asked {
    std::string right, promptName, prompt;
    std::size_t promptLength = 0;
    AuthorizationFlags flags = 0;
};

std::optional<Asked> g_asked;
bool g_granted = true;

// In the place of the platform's answer while it lives.
class StandIn {
 public:
    StandIn()
        : method_(class_getInstanceMethod([SFAuthorization class], @selector
                                          (obtainWithRights:flags:environment:authorizedRights:error:))) {
        before_ = method_setImplementation(
            method_,
            imp_implementationWithBlock(^BOOL(id, const AuthorizationRights* rights, AuthorizationFlags flags,
                                              const AuthorizationEnvironment* environment, void*, NSError**) {
              const auto& prompt = environment->items[0];
              g_asked = Asked{rights->items[0].name, prompt.name,
                              prompt.value != nullptr ? static_cast<const char*>(prompt.value) : "",
                              prompt.valueLength, flags};
              return g_granted ? YES : NO;
            }));
    }
    ~StandIn() { method_setImplementation(method_, before_); }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

 private:
    const Method method_;
    IMP before_ = nullptr;
};

class AuthorizationTest : public testing::Test {
 protected:
    AuthorizationTest() {
        g_asked.reset();
        g_granted = true;
    }

    fake::LogCapture log;
    const StandIn standIn;
};

TEST_F(AuthorizationTest, OnlyAnInteractiveRootActionMayAskTheUser) {
    EXPECT_NE([AuthorizationUtils authorizationForRootAction:YES], nil);
    EXPECT_EQ(g_asked->right, "system.privilege.admin");
    EXPECT_EQ(g_asked->flags, 3U);
    EXPECT_NE([AuthorizationUtils authorizationForRootAction:NO], nil);
    EXPECT_EQ(g_asked->flags, 2U);
}

TEST_F(AuthorizationTest, ARightIsAskedForWithTheMessageAndItsLengthInUnits) {
    EXPECT_NE([AuthorizationUtils askAuthorizationForRight:@"a.right" localizedMessage:@"\u00e4 \u20ac"],
              nil);
    EXPECT_EQ(g_asked->right, "a.right");
    EXPECT_EQ(g_asked->promptName, "prompt");
    EXPECT_EQ(g_asked->prompt, "\xC3\xA4 \xE2\x82\xAC");
    EXPECT_EQ(g_asked->promptLength, 3U);
}

TEST_F(AuthorizationTest, FlagsOfTheCallerAreKept) {
    [AuthorizationUtils askAuthorizationForRight:@"a.right" localizedMessage:@"" flags:0];
    EXPECT_EQ(g_asked->flags, 0U);
}

TEST_F(AuthorizationTest, ARefusalIsNilAndALineInTheLog) {
    g_granted = false;
    EXPECT_EQ([AuthorizationUtils askAuthorizationForRight:@"a.right"], nil);
    EXPECT_TRUE(log.contains("Failed to authorize Installer Privileged Helper"));
}

}  // namespace
