#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "SettingsMaker.h"
#include "common/fs.h"
#include "common/proto_settings.h"
#include "support/LogCapture.h"

// The settings of an installed product, as the packages make and keep them.

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class SettingsMakerTest : public testing::Test {
 protected:
    void write(const std::string& text) const { cmn::StrToFile(text, file_); }
    std::string text() const { return cmn::FileToStr(file_); }

    const fake::TemporaryFolder folder_;
    const fs::path file_ = folder_ / "settings.json";
    fake::LogCapture log_;
};

TEST_F(SettingsMakerTest, TheTemplateOfTheProductIsFilledIn) {
    host::MakeSettings({SETTINGS_TEMPLATE, "key", "/scanned", "uuid"}, file_);
    const auto settings = cmn::proto::LoadSettings(file_);
    EXPECT_EQ(settings.InstallationKey, "key");
    EXPECT_EQ(settings.ScanRoot, "/scanned");
    EXPECT_EQ(settings.DeviceUUID, "uuid");
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Agent").InstallPath, folder_.path());
    EXPECT_THAT(text(), Not(HasSubstr("${")));
}

TEST_F(SettingsMakerTest, ATemplateThatCannotBeLoadedLeavesWhatIsThere) {
    write(R"({"ServerURL": "kept"})");
    cmn::StrToFile("{", folder_ / "template");
    EXPECT_ANY_THROW(host::MakeSettings({folder_ / "template", "", "/", ""}, file_));
    EXPECT_THAT(text(), HasSubstr("kept"));
    EXPECT_FALSE(fs::exists(file_.string() + ".new"));
}

TEST_F(SettingsMakerTest, AnUpgradeChangesTheVersionOfTheProductAndNothingElse) {
    write(
        R"({"ServerPassword": "secret", "KeyOfAnotherVersion": [1, null, 18446744073709551615], "DeviceName": "d",
              "Products": [{"Name": "Other", "Version": "0.1"}, {"Version": "0.9", "Name": "Agent", "More": true}]})");
    fs::permissions(file_, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(host::SetInstalledVersion(file_, "Agent", "1.2.3"));
    const auto settings = cmn::proto::LoadSettings(file_);
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Agent").Version, "1.2.3");
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Other").Version, "0.1");
    EXPECT_EQ(settings.ServerPassword, "secret") << "the library's own saving drops it";
    EXPECT_EQ(settings.DeviceName, "d");
    EXPECT_THAT(text(), testing::AllOf(HasSubstr("KeyOfAnotherVersion"), HasSubstr("18446744073709551615"),
                                       HasSubstr("\"More\": true")));
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(SettingsMakerTest, AVersionThatIsThereOrAProductThatIsNotLeavesEveryByte) {
    for (const std::string settings : {R"({"Products":[{"Name":"Agent","Version":"1.2.3"}]})",
                                       R"({"Products":[{"Name":"Other"}]})", "{}"}) {
        write(settings);
        EXPECT_FALSE(host::SetInstalledVersion(file_, "Agent", "1.2.3")) << settings;
        EXPECT_EQ(text(), settings);
    }
}

TEST_F(SettingsMakerTest, SettingsThatCannotBeReadAreLeftToTheAdministrator) {
    write(R"({"Products": [)");
    EXPECT_ANY_THROW(host::SetInstalledVersion(file_, "Agent", "1.2.3"));
    EXPECT_EQ(text(), R"({"Products": [)");
}

}  // namespace
