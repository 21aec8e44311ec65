#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "TessarinCtl/CtlRun.h"
#include "Unpacked.h"
#include "common/json.h"
#include "doctor/Check.h"
#include "support/Environment.h"
#include "support/LogCapture.h"

namespace ctl {
namespace {

using fake::CtlRun;
using fake::RunCtl;

// With nothing installed, and no bus: the real checks, on this machine.
class SupportCommandsTest : public testing::Test {
 protected:
    SupportCommandsTest() {
        surroundings.sessionBus = surroundings.systemBus = "unix:path=/nonexistent/bus";
        surroundings.agent = folder / "TessarinUserAgent.app/Contents/Linux/TessarinUserAgent";
    }

    fake::LogCapture log;  // the libraries' own lines are not this program's
    const fake::TemporaryFolder folder;
    const fake::Environment home{"HOME", folder.path().string()};
    const fake::Environment noX{"DISPLAY", std::nullopt};
    const fake::Environment noWayland{"WAYLAND_DISPLAY", std::nullopt};
    const fake::Environment noBus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"};
    Surroundings surroundings;
};

TEST_F(SupportCommandsTest, TheDoctorSaysOneLineAboutEachCheck) {
    const CtlRun run = RunCtl({"doctor"}, surroundings);
    EXPECT_EQ(run.code, kSomethingIsWrong);
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), static_cast<std::ptrdiff_t>(Checks().size()));
    EXPECT_THAT(run.out, testing::HasSubstr("[wrong]          Message bus of the session"));
}

TEST_F(SupportCommandsTest, TheDoctorSpeaksJson) {
    const CtlRun run = RunCtl({"doctor", "--json", "--fix"}, surroundings);
    const cmn::proto::detail::ParsedText parsed(run.out);
    EXPECT_FALSE(parsed.root()["healthy"].GetBool());
    EXPECT_EQ(parsed.root()["checks"].Size(), Checks().size());
}

TEST_F(SupportCommandsTest, TheBundleHasWhatTheOtherCommandsSay) {
    const std::filesystem::path archive = folder / "support.tar.gz";
    const CtlRun run = RunCtl({"bundle", archive.string()}, surroundings);
    EXPECT_EQ(run.code, kAllIsWell) << run.err;
    const auto files = FilesOf(archive);
    for (const char* const name : {"doctor.json", "status.json", "versions.json", "settings.error.txt"}) {
        EXPECT_TRUE(files.contains(std::string("tessarin-support/") + name)) << name;
    }
    EXPECT_EQ(BytesOf(archive).find(folder.path().string()), std::string::npos);
    EXPECT_EQ(RunCtl({"bundle", archive.string()}, surroundings).code, kSomethingIsWrong)
        << "nothing is overwritten";
}

}  // namespace
}  // namespace ctl
