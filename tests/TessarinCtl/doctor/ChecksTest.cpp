#include <set>
#include <string>

#include "World.h"
#include "doctor/Doctor.h"

namespace ctl {
namespace {

class ChecksTest : public World {};

TEST_F(ChecksTest, WhereNothingIsWrongAllAreGood) {
    Doctor doctor(std::make_shared<const Machine>(machine()), std::chrono::seconds(20));
    std::set<std::string> ids;
    for (const Check& check : Checks()) {
        EXPECT_THAT(doctor.examine(check).finding, IsGood()) << check.id;
        EXPECT_TRUE(ids.insert(check.id).second) << check.id;
    }
    EXPECT_EQ(ids.size(), 16U);
    EXPECT_TRUE(commands.empty());
}

TEST_F(ChecksTest, OnAMachineWithoutAnythingEachSaysSoInTime) {
    for (const auto& gone : {root, bundle.parent_path(), data, home}) {
        std::filesystem::remove_all(gone);
    }
    systemAddress = sessionAddress = "";
    programs.clear();
    variables.clear();
    userLogs.clear();
    space.reset();
    seen.reset();
    Doctor doctor(std::make_shared<const Machine>(machine()), std::chrono::seconds(20));
    for (const Check& check : Checks()) {
        const Finding finding = doctor.examine(check).finding;
        EXPECT_NE(finding.verdict, Verdict::good) << check.id << finding.text;
        EXPECT_FALSE(finding.text.empty()) << check.id;
        EXPECT_EQ(finding.remedy.empty(), finding.verdict == Verdict::notApplicable) << check.id;
    }
    EXPECT_FALSE(doctor.leftBehind());
}

TEST_F(ChecksTest, BusesThatHangKeepNoCheckLongerThanItsDeadline) {
    systemBus.freeze();
    desktop.sessionBus.freeze();
    const auto all = std::make_shared<const Machine>(machine());
    Doctor doctor(all, kShort);
    for (const Check& check : Checks()) {
        const auto begin = cmn::bus::Clock::now();
        check.run(*all, begin + kShort);
        // On its own, not because somebody ended it; a loaded machine gets some time more.
        EXPECT_LT(cmn::bus::Clock::now() - begin, 5 * kShort) << check.id;
    }
    for (const char* const id : {"services", "session-bus", "accessibility-bus", "accessibility-switch"}) {
        const auto found = std::find_if(Checks().begin(), Checks().end(),
                                        [&](const Check& check) { return std::string(check.id) == id; });
        EXPECT_EQ(doctor.examine(*found).finding.verdict, Verdict::wrong) << id;
    }
    systemBus.thaw();
    desktop.sessionBus.thaw();
}

}  // namespace
}  // namespace ctl
