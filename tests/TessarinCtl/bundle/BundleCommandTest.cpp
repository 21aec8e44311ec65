#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Unpacked.h"
#include "bundle/BundleCommand.h"
#include "bundle/MachineNames.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "support/Environment.h"
#include "support/LogCapture.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
using cmn::SecretKind;
using testing::HasSubstr;

TEST(BundleCommandTest, SaysWhatIsInTheArchive) {
    const fake::TemporaryFolder folder;
    cmn::StrToFile("{}", folder / "settings.json");
    std::ostringstream out;
    std::ostringstream err;
    const fs::path archive = folder / "support.tar.gz";
    const BundleSources sources{{{"doctor.json", "[]"}}, folder / "settings.json", {}, {}, {}};
    EXPECT_EQ(RunBundle(sources, archive, out, err), 0);
    EXPECT_EQ(out.str(), archive.string() + "\n    doctor.json (2 bytes)\n    settings.json (2 bytes)\n");
    EXPECT_EQ(err.str(), "");
    EXPECT_EQ(RunBundle(sources, archive, out, err), 1) << "it is there already";
    EXPECT_THAT(err.str(), HasSubstr("File exists"));
}

TEST(BundleCommandTest, AnArchiveIsNamedAfterTheTimeAndNobody) {
    EXPECT_THAT(ArchiveName(1'000'000'000),
                testing::MatchesRegex("tessarin-support-20010909-[0-9]{6}\\.tar\\.gz"));
}

TEST(BundleCommandTest, OfTheMachineComeVersionsSettingsLogsAndNames) {
    Machine machine = ThisMachine("/opt/tessarin/TessarinUserAgent.app", "/nowhere/state/tessarin", "", "");
    machine.desktop.currentDesktop = "XFCE";
    const BundleSources sources = SourcesOfThisMachine(machine, {{"doctor.json", "[]"}});
    EXPECT_EQ(sources.settings, "/opt/tessarin/settings.json");
    EXPECT_THAT(sources.logFolders,
                testing::ElementsAre(fs::path("/opt/tessarin"), fs::path("/nowhere/state/tessarin"),
                                     fs::path(cmn::GetSystemLogFolder())));
    EXPECT_EQ(sources.reports.size(), 2U);
    EXPECT_THAT(sources.reports.at("versions.json"), HasSubstr("\"desktop\": \"XFCE\""));
    EXPECT_THAT(sources.secrets, testing::Contains(std::pair(SecretKind::host, cmn::GetHostName())));
    // What says nothing about anybody stays readable.
    const auto files = RedactedFiles(sources);
    EXPECT_THAT(files.at("versions.json"), testing::Not(HasSubstr("<")));
}

TEST(MachineNamesTest, PeopleAndTheHostAreNamedAndRootIsNot) {
    const fake::Environment user("USER", "root");
    const fake::Environment fromADirectory("LOGNAME", "jdoe");
    const auto names = NamesOnThisMachine();
    EXPECT_THAT(names, testing::Contains(std::pair(SecretKind::host, cmn::GetHostName())));
    EXPECT_THAT(names, testing::Contains(std::pair(SecretKind::user, std::string("jdoe"))));
    EXPECT_THAT(names, testing::Not(testing::Contains(std::pair(SecretKind::user, std::string("root")))));
    EXPECT_THAT(names, testing::Not(testing::Contains(std::pair(SecretKind::user, std::string("nobody")))));
}

}  // namespace
}  // namespace ctl
