#include <sys/stat.h>

#include "World.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;

class FileChecksTest : public World {
 protected:
    // Also root can make nothing there.
    void makeUnwritable() const {
        Write(home / ".local/state", "in the way");
        fs::create_directories(folder / "opt/com.tessarin.UserAgent_0.log");
    }
    const fs::path log = folder / "opt/com.tessarin.UserAgent_0.log";
};

TEST_F(FileChecksTest, TheLogIsFoundAndNotMade) {
    EXPECT_THAT(run(CheckLog).text, testing::HasSubstr(log.string()));
    EXPECT_FALSE(fs::exists(log));
    fs::create_directories(log);  // nothing to be written
    EXPECT_THAT(run(CheckLog).text,
                testing::HasSubstr((home / ".local/state/tessarin/com.tessarin.UserAgent_0.log").string()));
    EXPECT_FALSE(fs::exists(home / ".local/state"));
    userLogs.clear();
    EXPECT_THAT(run(CheckLog), Is(Verdict::wrong, "No place", (folder / "opt").string()));
}

TEST_F(FileChecksTest, ALogThatCannotBeWrittenAnywhereIsTold) {
    makeUnwritable();
    EXPECT_THAT(run(CheckLog), Is(Verdict::wrong, "No place", (home / ".local/state/tessarin").string()));
    EXPECT_EQ(run(CheckDisk).verdict, Verdict::notApplicable);
}

TEST_F(FileChecksTest, ALinkInThePlaceOfTheLogIsNoLog) {
    makeUnwritable();
    fs::remove(log);
    EXPECT_THAT(run(CheckLog), IsGood());
    fs::create_symlink(home / "elsewhere", log);
    EXPECT_THAT(run(CheckLog), Is(Verdict::wrong, "No place", "mkdir"));
}

TEST_F(FileChecksTest, SettingsThatBreakSayAtWhichByte) {
    Write(settings, "{\n  \"Platform\": \"Linux\",\n  \"LogLevel\" \"Info\"\n}\n");
    EXPECT_THAT(run(CheckSettings),
                Is(Verdict::wrong, "breaks at byte 38 (line 3): Invalid json", "restore"));
    Write(settings, "[1]");
    EXPECT_THAT(run(CheckSettings), Is(Verdict::wrong, "breaks: ", "restore"));
    Write(settings, "");
    EXPECT_THAT(run(CheckSettings), Is(Verdict::wrong, "breaks at byte 0 (line 1)", "restore"));
}

TEST_F(FileChecksTest, SettingsThatAreMissingOrATemplateAreTold) {
    fs::remove(settings);
    EXPECT_THAT(run(CheckSettings), Is(Verdict::wrong, "settings.json\" is missing", "--reinstall"));
    Write(settings, R"({"DeviceUUID": "${DEV_UUID}"})");
    EXPECT_THAT(run(CheckSettings), Is(Verdict::wrong, "template", "--reinstall"));
    Write(settings, "{}");
    EXPECT_THAT(run(CheckSettings), Is(Verdict::warning, "no product \"Agent\"", "Products"));
}

TEST_F(FileChecksTest, AClockBeforeTheProductsFilesIsWrong) {
    now -= std::chrono::hours(1);
    EXPECT_THAT(run(CheckClock), Is(Verdict::wrong, "before the time", "timedatectl"));
    now += std::chrono::minutes(58);
    EXPECT_THAT(run(CheckClock), IsGood());
    now -= std::chrono::hours(24);
    fs::last_write_time(program, fs::file_time_type::clock::now() - std::chrono::hours(48));
    EXPECT_THAT(run(CheckClock), Is(Verdict::wrong, "before the time", "timedatectl"))
        << "the settings are newer";
    fs::last_write_time(settings, fs::file_time_type::clock::now() - std::chrono::hours(48));
    EXPECT_THAT(run(CheckClock), IsGood());
    fs::last_write_time(program, fs::file_time_type::clock::now());
    EXPECT_THAT(run(CheckClock), Is(Verdict::wrong, "before the time", "timedatectl"))
        << "the program is newer";
}

TEST_F(FileChecksTest, ADiskThatGetsFullIsTold) {
    space = 40 << 20;
    EXPECT_THAT(run(CheckDisk), IsGood());
    space = 29 << 20;
    EXPECT_THAT(run(CheckDisk), Is(Verdict::warning, "29 MiB are left", "make room"));
    space = (1 << 20) - 1;
    EXPECT_THAT(run(CheckDisk), Is(Verdict::wrong, "0 MiB are left", "make room"));
    space.reset();
    EXPECT_THAT(run(CheckDisk), Is(Verdict::warning, "cannot be told", "df"));
}

}  // namespace
}  // namespace ctl
