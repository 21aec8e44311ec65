#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "FakeInterface.h"
#include "common/fs.h"
#include "support/LogCapture.h"
#include "useragent/PermissionNotices.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using useragent::PermissionNotices;
using useragent::ToldOnce;

constexpr const char* kDisk = "Full disk access is missing";
constexpr const char* kExtension = "The file manager has no entry for Tessarin";

class PermissionNoticesTest : public testing::Test {
 protected:
    // As when the agent starts.
    void start() {
        reviewer = std::make_shared<PermissionNotices>(
            PermissionNotices::Environment{notices, extension, panes, ToldOnce(state)});
    }
    std::vector<std::string> titles() const {
        std::vector<std::string> found;
        for (const auto& each : notices->shown) {
            found.push_back(each.notice.title);
        }
        return found;
    }

    const fake::TemporaryFolder folder;
    fs::path state = folder / "state" / "tessarin";
    fake::LogCapture log;
    std::shared_ptr<fake::Notices> notices = std::make_shared<fake::Notices>();
    std::shared_ptr<fake::FileManagerExtension> extension = std::make_shared<fake::FileManagerExtension>();
    std::shared_ptr<fake::SettingsPanes> panes = std::make_shared<fake::SettingsPanes>();
    std::shared_ptr<PermissionNotices> reviewer;
};

TEST_F(PermissionNoticesTest, EachMissingPermissionIsToldOnceAndItsButtonMendsIt) {
    extension->enabled = false;
    start();
    reviewer->review(false);
    reviewer->review(false);
    ASSERT_THAT(titles(), ElementsAre(kDisk, kExtension));
    notices->shown[0].pressed();
    EXPECT_THAT(panes->opened, ElementsAre("full disk access"));
    EXPECT_EQ(extension->shown, 0);
    notices->shown[1].pressed();
    EXPECT_EQ(extension->shown, 1);
}

TEST_F(PermissionNoticesTest, WhatIsGrantedOrNotKnownIsNotTold) {
    start();
    reviewer->review(std::nullopt);
    reviewer->review(true);
    extension->enabled = false;
    extension->possible = false;
    reviewer->review(true);
    EXPECT_THAT(titles(), IsEmpty());
    EXPECT_FALSE(fs::exists(folder / "state")) << "nothing is made that is not needed";
}

TEST_F(PermissionNoticesTest, WhatWasToldIsNeverToldAgainAlsoAfterItWasGrantedAndLost) {
    start();
    reviewer->review(false);
    notices->shown.at(0).done("");
    reviewer->review(true);
    reviewer->review(false);
    start();
    reviewer->review(false);
    extension->enabled = false;
    reviewer->review(false);
    EXPECT_THAT(titles(), ElementsAre(kDisk, kExtension)) << "the other permission is told all the same";
}

TEST_F(PermissionNoticesTest, WhatCouldNotBeShownIsTriedAgainAtTheNextRefreshAndSaidOnceInTheLog) {
    start();
    for (int times = 1; times <= 3; ++times) {
        reviewer->review(false);
        ASSERT_EQ(notices->shown.size(), static_cast<std::size_t>(times));
        notices->shown.back().done("no service");
    }
    EXPECT_EQ(log.count("The user could not be told of the missing permission full-disk-access: no service"),
              1U);
    reviewer->review(false);
    notices->shown.back().done("");
    start();
    reviewer->review(false);
    EXPECT_EQ(notices->shown.size(), 4U);
}

TEST_F(PermissionNoticesTest, ANoteUnderWayWhenTheAgentEndsIsToldAtTheNextStart) {
    start();
    reviewer->review(false);
    start();
    notices->shown.at(0).done("");
    EXPECT_FALSE(ToldOnce(state).wasTold("full-disk-access"));
    reviewer->review(false);
    EXPECT_EQ(notices->shown.size(), 2U);
}

TEST_F(PermissionNoticesTest, WhatCannotBeKeptIsToldAtTheNextStartWithALineInTheLog) {
    state = folder / "file" / "tessarin";
    cmn::StrToFile("", folder / "file");
    start();
    reviewer->review(false);
    notices->shown.at(0).done("");
    EXPECT_EQ(log.count("the user is told again at the next start"), 1U);
    reviewer->review(false);
    EXPECT_EQ(notices->shown.size(), 1U) << "not again in this one";
    start();
    reviewer->review(false);
    EXPECT_EQ(notices->shown.size(), 2U);
}

TEST_F(PermissionNoticesTest, WithoutAFolderNothingIsKept) {
    for (const fs::path& nowhere : {fs::path(), fs::path("relative")}) {
        const ToldOnce told(nowhere);
        told.setToldNoThrow("anything");
        EXPECT_FALSE(told.wasTold("anything"));
    }
}

TEST_F(PermissionNoticesTest, WhatIsKeptIsTheUsersAlone) {
    const ToldOnce told(state);
    told.setToldNoThrow("anything");
    EXPECT_TRUE(told.wasTold("anything"));
    EXPECT_FALSE(told.wasTold("another"));
    EXPECT_EQ(fs::status(state).permissions(), fs::perms::owner_all);
}

}  // namespace
