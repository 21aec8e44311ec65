#include <memory>
#include <optional>
#include <string>

#include "AppDelegateFixture.h"

// What the delegate tells those who ask how the agent is.
namespace {

using namespace std::chrono_literals;

class AppDelegateStatusTest : public AppDelegateFixture {
 protected:
    // What comes of a question how the agent is; nothing before `dispatch` has run.
    std::shared_ptr<std::optional<useragent::AgentStatus>> askStatus(bool withAddresses = false) {
        const auto status = std::make_shared<std::optional<useragent::AgentStatus>>();
        delegate->gatherStatus(withAddresses, [status](const std::string& json) {
            *status = cmn::proto::JsonToObjectImpl<useragent::AgentStatus>(json);
        });
        return status;
    }
};

TEST_F(AppDelegateStatusTest, TellsItsServiceItsIconAndThePermissionsOfTheMenu) {
    launch();
    interface->place = useragent::IconPlace::statusArea;
    const auto before = askStatus();
    dispatch->runUntilIdle();
    ASSERT_TRUE(before->has_value());
    EXPECT_EQ((*before)->version, "4.5.6");
    EXPECT_EQ((*before)->icon, "status area");
    ASSERT_EQ((*before)->services.size(), 1U);
    EXPECT_EQ((*before)->services[0].name, "com.tessarin.FinderExtension");
    EXPECT_TRUE((*before)->services[0].reached);
    EXPECT_TRUE(useragent::AllIsWell(**before));
    for (bool* const permission : {&service.fullDiskAccess, &menu.extension->enabled}) {
        *permission = false;
        const auto without = askStatus();
        dispatch->runUntilIdle();
        EXPECT_EQ((*without)->permissions.fullDiskAccess, service.fullDiskAccess);
        EXPECT_EQ((*without)->permissions.finderExtension, menu.extension->enabled);
        EXPECT_TRUE((*without)->permissions.accessibility);
        *permission = true;
    }
    menu.accessibility->trusted = false;
    const auto untrusted = askStatus();
    dispatch->runUntilIdle();
    EXPECT_FALSE((*untrusted)->permissions.accessibility);
}

TEST_F(AppDelegateStatusTest, TellsAddressesToThoseWhoAskForThem) {
    launch();
    const auto without = askStatus(false);
    const auto with = askStatus(true);
    dispatch->runUntilIdle();
    EXPECT_EQ((*without)->browsers.at(0).address + (*without)->lastReport->address, "");
    EXPECT_EQ((*with)->browsers.at(0).address, "a.example");
    EXPECT_EQ((*with)->lastReport->address, "b.example");
}

TEST_F(AppDelegateStatusTest, AServiceThatHangsKeepsNeitherTheMainThreadNorTheStatusWaiting) {
    launch();
    service.answersVersion = false;
    const auto before = dispatch->now();
    const auto status = askStatus();
    EXPECT_EQ(dispatch->now(), before) << "waited";
    dispatch->advance(100ms);
    ASSERT_TRUE(status->has_value());
    EXPECT_FALSE((*status)->permissions.fullDiskAccess);
}

TEST_F(AppDelegateStatusTest, TellsItsStatusBeforeTheLaunchAndWithoutASource) {
    otherStatus = nullptr;
    delegate = makeDelegate();
    const auto status = askStatus();
    dispatch->runUntilIdle();
    ASSERT_TRUE(status->has_value());
    EXPECT_EQ((*status)->icon, "none");
    EXPECT_FALSE((*status)->services.at(0).reached);
}

}  // namespace
