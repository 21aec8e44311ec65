#include <gmock/gmock.h>

#include <filesystem>

#include "common/fs.h"
#include "common/log_place.h"
#include "support/LogCapture.h"

// Where a log goes that cannot lie where it should.

namespace {

namespace fs = std::filesystem;

class LogPlaceTest : public testing::Test {
 protected:
    LogPlaceTest() { cmn::StrToFile("", folder_ / "file"); }

    static fs::perms permissionsOf(const fs::path& path) { return fs::status(path).permissions(); }

    const fake::TemporaryFolder folder_;
    const fs::path missing_ = folder_ / "missing" / "com.tessarin.UserAgent";
    const fs::path state_ = folder_ / ".local" / "state" / "tessarin";
};

TEST_F(LogPlaceTest, IsTheWantedOneWhereThatCanBeWritten) {
    EXPECT_EQ(cmn::WritableLogStem(folder_ / "name", {state_}), folder_ / "name");
    EXPECT_TRUE(fs::exists(folder_ / "name_0.log"));
    EXPECT_FALSE(fs::exists(folder_ / ".local")) << "nothing is made that is not needed";
}

TEST_F(LogPlaceTest, IsElseTheFirstFolderThatCanBeWrittenUnderTheSameName) {
    EXPECT_EQ(cmn::WritableLogStem(missing_, {folder_ / "file", state_, folder_.path()}),
              state_ / "com.tessarin.UserAgent");
    EXPECT_FALSE(fs::exists(missing_.parent_path())) << "the wanted folder is not made";
}

TEST_F(LogPlaceTest, FoldersThatAreMadeAreTheOwnersAlone) {
    cmn::WritableLogStem(missing_, {state_});
    for (auto made = state_; made != folder_.path(); made = made.parent_path()) {
        EXPECT_EQ(permissionsOf(made), fs::perms::owner_all) << made;
    }
    EXPECT_EQ(permissionsOf(state_ / "com.tessarin.UserAgent_0.log"),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(LogPlaceTest, AFolderThatIsThereKeepsItsRights) {
    fs::create_directories(state_);
    fs::permissions(state_, fs::perms::owner_all | fs::perms::group_read);
    EXPECT_TRUE(cmn::WritableLogStem(missing_, {state_}));
    EXPECT_EQ(permissionsOf(state_), fs::perms::owner_all | fs::perms::group_read);
}

TEST_F(LogPlaceTest, IsNowhereWhenNoFileCanBeOpened) {
    EXPECT_EQ(cmn::WritableLogStem(missing_, {}), std::nullopt);
    EXPECT_EQ(cmn::WritableLogStem(missing_, {folder_ / "file", folder_ / "file" / "below"}), std::nullopt);
}

TEST_F(LogPlaceTest, IsNeverInTheWorkingDirectory) {
    const auto before = fs::current_path();
    fs::current_path(folder_.path());
    EXPECT_EQ(cmn::WritableLogStem(missing_, {"", ".", "relative"}), std::nullopt);
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(folder_ / "file"));
    EXPECT_FALSE(fs::exists(folder_ / "relative"));
    EXPECT_FALSE(fs::exists(folder_ / "com.tessarin.UserAgent_0.log"));
}

}  // namespace
