#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "EventWriter.h"
#include "HostProcess.h"
#include "common/fs.h"
#include "common/proto_settings.h"

// What the service host does without a bus.
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

// The host as a program that makes settings.
class MakeSettingsTest : public testing::Test {
 protected:
    void make(const std::string& from, const std::vector<std::string>& more, int status) {
        std::vector<std::string> arguments{"--make-settings", from, "--settings", file.string()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        HostProcess host("unix:path=/nonexistent/bus", arguments);
        EXPECT_EQ(host.process().wait(), status) << host.process().errors();
        errors = host.process().errors();
        EXPECT_FALSE(std::filesystem::exists(file.string() + ".new"));
    }
    std::string broken() const {
        std::ofstream(folder / "broken") << R"({"InstallationKey": "${INST_KEY}")";
        return folder / "broken";
    }

    const fake::TemporaryFolder folder;
    const std::filesystem::path file = folder / "settings.json";
    std::string errors;
};

TEST_F(MakeSettingsTest, FillsTheProductsTemplate) {
    make(SETTINGS_TEMPLATE,
         {"--installation-key", "a \"quoted\" key", "--scan-root=/scan/root", "--device-uuid", "the uuid"},
         0);
    const auto settings = cmn::proto::LoadSettings(file);
    EXPECT_EQ(settings.InstallationKey, "a \"quoted\" key");
    EXPECT_EQ(settings.ScanRoot, "/scan/root");
    EXPECT_EQ(settings.DeviceUUID, "the uuid");
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Agent").InstallPath, folder.path());
    EXPECT_EQ(cmn::FileToStr(file).find("${"), std::string::npos);
}

TEST_F(MakeSettingsTest, ReplacesOlderSettingsWithAnotherDeviceUnlessItIsNamed) {
    make(SETTINGS_TEMPLATE, {}, 0);
    const auto first = cmn::proto::LoadSettings(file);
    EXPECT_EQ(first.DeviceUUID.size(), 36U);
    EXPECT_EQ(first.InstallationKey, "");
    make(SETTINGS_TEMPLATE, {"--installation-key", "key"}, 0);
    const auto second = cmn::proto::LoadSettings(file);
    EXPECT_EQ(second.InstallationKey, "key");
    EXPECT_NE(second.DeviceUUID, first.DeviceUUID);
}

TEST_F(MakeSettingsTest, KeepsOlderSettingsWhenTheNewOnesCannotBeMade) {
    cmn::StrToFile("old", file);
    make(broken(), {}, 2);
    EXPECT_THAT(errors, AllOf(StartsWith("TessarinServiceHost: Couldn't open " + file.string() + ".new\n"),
                              HasSubstr("caused by: Invalid json -- err: ")));
    make(folder / "missing", {}, 2);
    EXPECT_THAT(errors, HasSubstr((folder / "missing").string()));
    make("", {}, 2);
    EXPECT_EQ(cmn::FileToStr(file), "old");
}

TEST_F(MakeSettingsTest, MakesThemBesideTheProgramWhenNoFileIsNamed) {
    const auto program = folder / "TessarinServiceHost";
    std::filesystem::copy_file(TESSARIN_SERVICE_HOST, program);
    fake::ChildProcess host({program, "--make-settings", SETTINGS_TEMPLATE});
    EXPECT_EQ(host.wait(), 0) << host.errors();
    const auto settings = cmn::proto::LoadSettings(file);
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Agent").InstallPath, folder.path());
}

TEST(ReportFieldsTest, NameTheUserWhoSentTheReportWhenItIsKnown) {
    EXPECT_EQ(
        host::FormatEvent(true, "url", host::ReportFields("u", "Safari", 5, cmn::XPCPeer{.userID = 1000})),
        R"({"event":"url","url":"u","browser":"Safari","pid":5,"user":1000})");
    EXPECT_EQ(
        host::FormatEvent(false, "url", host::ReportFields("u", "b", -1, cmn::XPCPeer{.userID = 4294967294})),
        R"(url url="u" browser="b" pid=-1 user=4294967294)");
    EXPECT_EQ(host::FormatEvent(false, "url", host::ReportFields("u", "b", 5, std::nullopt)),
              R"(url url="u" browser="b" pid=5)");
}

}  // namespace
