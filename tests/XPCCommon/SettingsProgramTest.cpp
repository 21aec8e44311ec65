#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "common/fs.h"
#include "common/proto_settings.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

// The program that the packages' scripts run beside the product.
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

class SettingsProgramTest : public testing::Test {
 protected:
    SettingsProgramTest() { fs::copy_file(TESSARIN_SETTINGS, program); }

    void run(std::vector<std::string> arguments, int status) {
        arguments.insert(arguments.begin(), program);
        fake::ChildProcess process(arguments);
        output = process.readLine().value_or("");
        EXPECT_EQ(process.wait(), status);
        errors = process.errors();
    }

    const fake::TemporaryFolder folder;
    const fs::path program = folder / "TessarinSettings";
    const fs::path file = folder / "settings.json";
    std::string output;  // the first line
    std::string errors;
};

TEST_F(SettingsProgramTest, MakesSettingsThatAllUsersReadWhereThereAreNone) {
    run({"--installation-key", "key", SETTINGS_TEMPLATE, "--scan-root", "/scanned", "--device-uuid", "uuid"},
        0);
    EXPECT_EQ(errors, "");
    const auto settings = cmn::proto::LoadSettings(file);
    EXPECT_EQ(settings.InstallationKey, "key");
    EXPECT_EQ(settings.ScanRoot, "/scanned");
    EXPECT_EQ(settings.DeviceUUID, "uuid");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
}

TEST_F(SettingsProgramTest, ChangesNothingButTheVersionOfThoseThatAreThere) {
    cmn::StrToFile(R"({"DeviceUUID": "kept", "Products": [{"Name": "Agent", "Version": "0.1"}]})", file);
    fs::permissions(file, fs::perms(0640));
    run({SETTINGS_TEMPLATE, "--device-uuid", "other"}, 0);
    const auto settings = cmn::proto::LoadSettings(file);
    EXPECT_EQ(settings.DeviceUUID, "kept");
    EXPECT_EQ(cmn::proto::GetProduct(settings, "Agent").Version, TESSARIN_VERSION);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
}

TEST_F(SettingsProgramTest, SaysWhyItFailed) {
    cmn::StrToFile("{", folder / "broken");
    run({folder / "broken"}, 1);
    EXPECT_THAT(errors, testing::AllOf(StartsWith("TessarinSettings: Couldn't open " + file.string()),
                                       HasSubstr("caused by: Invalid json -- err: ")));
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(SettingsProgramTest, RefusesArgumentsThatItDoesNotUnderstand) {
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {}, {"--other"}, {SETTINGS_TEMPLATE, "--scan-root"}, {SETTINGS_TEMPLATE, SETTINGS_TEMPLATE}}) {
        run(wrong, 2);
        EXPECT_THAT(errors, StartsWith("Usage: TessarinSettings TEMPLATE"));
    }
    EXPECT_FALSE(fs::exists(file));
    run({"--help"}, 0);
    EXPECT_THAT(output, StartsWith("Usage: TessarinSettings TEMPLATE"));
}

}  // namespace
