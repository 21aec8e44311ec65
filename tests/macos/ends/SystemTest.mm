#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "common/SystemUtils.h"
#include "support/LogCapture.h"

// What the library says of the running system.
namespace {

using testing::AnyOf;
using testing::MatchesRegex;

TEST(SystemTest, ThePathOfAProcessIsItsProgram) {
    const std::string own = cmn::GetProcessPathForPID(static_cast<unsigned int>(getpid()));
    EXPECT_TRUE(std::filesystem::exists(own)) << own;
    EXPECT_TRUE(std::filesystem::equivalent(cmn::GetCurrentExecutablePath(), own));
    EXPECT_EQ(cmn::GetProcessPathForPID(0x7FFFFFFF), "");
}

TEST(SystemTest, TheNameOfTheSystemHasItsNumberAndItsMachine) {
    EXPECT_THAT(cmn::GetOSName(), AnyOf(MatchesRegex("macOS [0-9]+\\.[0-9]+\\.[0-9]+ \\(arm64\\)"),
                                        MatchesRegex("macOS [0-9]+\\.[0-9]+\\.[0-9]+ \\(x86_64\\)")));
}

TEST(SystemTest, TheAddressOfTheNetworkHasSixPairs) {
    EXPECT_THAT(cmn::GetMACAddress(), MatchesRegex("[0-9A-F]{12}"));
}

TEST(SystemTest, OutputAndErrorsOfAProgramAreOneText) {
    EXPECT_EQ(cmn::ExecProcess("/bin/sh", {"-c", "echo out; echo error >&2; echo end"}, false),
              "out\nerror\nend\n");
    EXPECT_EQ(cmn::ExecProcess("/usr/bin/yes", {"-c"}, false).empty(), false);
}

TEST(SystemTest, AProgramWithMuchOutputIsReadToItsEnd) {
    EXPECT_EQ(
        cmn::ExecProcess("/bin/dd", {"if=/dev/zero", "bs=1000", "count=1000", "status=none"}, false).size(),
        1'000'000U);
}

TEST(SystemTest, AProgramThatDoesNotEndIsEnded) {
    const std::chrono::milliseconds deadline(500);
    EXPECT_EQ(cmn::ExecProcess("/bin/sh", {"-c", "echo out; exec sleep 1000"}, false, deadline), "out\n");
    EXPECT_EQ(
        cmn::ExecProcess("/bin/sh", {"-c", "echo out; exec >&- 2>&-; exec sleep 1000"}, false, deadline),
        "out\n");
}

TEST(SystemTest, FullDiskAccessIsWhetherTheProtectedFolderCanBeListed) {
    std::error_code error;
    const std::filesystem::directory_iterator entries("/Library/Application Support/com.apple.TCC", error);
    EXPECT_EQ(cmn::IsFullDiskAccessGranted(), !error);
}

TEST(SystemTest, TheSharedFolderIsTheOneOfTheProgram) {
    EXPECT_TRUE(std::filesystem::equivalent(
        cmn::GetSharedPath(), std::filesystem::path(cmn::GetCurrentExecutablePath()).parent_path()));
}

}  // namespace
