#include <gmock/gmock.h>
#include <sys/stat.h>

#include <boost/interprocess/exceptions.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "Failures.h"
#include "SettingsFiles.h"
#include "common/settings_json.h"
#include "support/FileSizeLimit.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"
#include "support/NeedsProc.h"

// Settings files as one process sees them that has them for itself.

namespace cmn::proto {
namespace {

namespace fs = std::filesystem;
using boost::interprocess::interprocess_exception;
using fake::FailureHasCallStack;
using fake::FailureOf;
using fake::FailuresOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr auto kNotRegular = "not a regular file";
constexpr auto kTooLarge = "larger than 67108864 bytes";

// Something that is no regular file, and that whoever opens it for one direction alone waits at.
void MakePipe(const fs::path& path) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
}

class LoadSettingsTest : public SettingsFileTest {
 protected:
    std::string couldNotOpen() const { return "Couldn't open " + file_.string(); }
};

TEST_F(LoadSettingsTest, ReadsAFile) {
    StrToFile(R"({"Platform": "linux", "ScanThreadCount": "4"})", file_);
    const auto settings = LoadSettings(file_);
    EXPECT_EQ(settings.Platform, "linux");
    EXPECT_EQ(settings.ScanThreadCount, 4);
}

TEST_F(LoadSettingsTest, EmptyObjectIsAllDefaults) {
    StrToFile("{}", file_);
    EXPECT_EQ(LoadSettings(file_), TSettings());
}

TEST_F(LoadSettingsTest, MissingFileIsAnErrorWithItsCauseInside) {
    EXPECT_THROW(LoadSettings(file_), std::runtime_error);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                ElementsAre(couldNotOpen(), "failed to open stream"));
}

TEST_F(LoadSettingsTest, EmptyFileIsAnErrorWithItsCauseInside) {
    StrToFile("", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                ElementsAre(couldNotOpen(), "Invalid json -- err: 1 offs: 0"));
}

TEST_F(LoadSettingsTest, TruncatedFileIsAnErrorWithItsCauseInside) {
    const auto whole = ObjectToJson(Named("linux"));
    for (const auto size : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
        StrToFile(whole.substr(0, size), file_);
        const auto failures = FailuresOf([&] { LoadSettings(file_); });
        ASSERT_EQ(failures.size(), 2U) << size;
        EXPECT_EQ(failures[0], couldNotOpen());
        EXPECT_THAT(failures[1], testing::StartsWith("Invalid json -- err: "));
    }
}

TEST_F(LoadSettingsTest, AnythingButAnObjectIsAnErrorWithItsCauseInside) {
    for (const auto* json : {"[]", "1", "null", R"({"Products": 1})"}) {
        StrToFile(json, file_);
        EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                    ElementsAre(couldNotOpen(), "JsonToObjectImpl"));
    }
}

TEST_F(LoadSettingsTest, WrongBoolIsAnErrorWithItsCauseInside) {
    StrToFile(R"({"DecryptOnly": "True"})", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                ElementsAre(couldNotOpen(), "Unexpected string value (True) for bool type"));
}

TEST_F(LoadSettingsTest, TextThatIsNoNumberPassesAsTheConversionsError) {
    StrToFile(R"({"ScanThreadCount": "abc"})", file_);
    EXPECT_THROW(LoadSettings(file_), std::invalid_argument);
    StrToFile(R"({"ScanThreadCount": "99999999999"})", file_);
    EXPECT_THROW(LoadSettings(file_), std::out_of_range);
}

TEST_F(LoadSettingsTest, FolderInPlaceOfTheFileIsAnErrorWithItsCauseInside) {
    fs::create_directory(file_);
    const auto failures = FailuresOf([&] { LoadSettings(file_); });
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0], couldNotOpen());
}

TEST_F(LoadSettingsTest, DoesNotWaitForWhatIsNoRegularFile) {
    MakePipe(file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }), ElementsAre(couldNotOpen(), kNotRegular));
    fs::remove(file_);
    fs::create_symlink("/dev/zero", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }), ElementsAre(couldNotOpen(), kNotRegular));
}

TEST_F(LoadSettingsTest, ReadsAFileThroughALink) {
    StrToFile(R"({"Platform": "linux"})", folder_ / "target");
    fs::create_symlink(folder_ / "target", file_);
    EXPECT_EQ(LoadSettings(file_).Platform, "linux");
}

TEST_F(LoadSettingsTest, ReadsUpTo64MebibytesAndNothingLarger) {
    std::string text = R"({"Platform": "linux", "UpdaterID": ")";
    text.resize(64 * 1024 * 1024 - 2, 'a');
    StrToFile(text + "\"}", file_);
    const auto settings = LoadSettings(file_);
    EXPECT_EQ(settings.Platform, "linux");
    EXPECT_GT(settings.UpdaterID.size(), 67'000'000U);
    StrToFile(text + " \"}", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }), ElementsAre(couldNotOpen(), kTooLarge));
}

TEST_F(LoadSettingsTest, DoesNotMakeRoomForTheSizeThatAFileClaims) {
    StrToFile("", file_);
    fs::resize_file(file_, std::uintmax_t{1} << 40);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }), ElementsAre(couldNotOpen(), kTooLarge));
}

TEST_F(LoadSettingsTest, ReadsAFileThatClaimsToBeEmpty) {
    NEEDS_PROC();
    // Files of the kernel are of size 0, whatever they hold.
    EXPECT_THAT(FailuresOf([&] { LoadSettings("/proc/self/status"); }),
                ElementsAre("Couldn't open /proc/self/status", "Invalid json -- err: 3 offs: 0"));
}

TEST_F(LoadSettingsTest, LockErrorIsLoggedAndGivesDefaults) {
    StrToFile(R"({"Platform": "linux"})", file_);
    fake::LogCapture log;
    const auto settings = LoadSettingsWith(
        file_, [](const fs::path&) -> TSettings { throw interprocess_exception("the lock's error"); });
    EXPECT_EQ(settings, TSettings());
    EXPECT_THAT(log.lines(), ElementsAre(testing::AllOf(
                                 testing::StartsWith("[ERROR] ["), HasSubstr(" settings_file.cpp:"),
                                 EndsWith(" LoadSettings -- Can't load settings: the lock's error"))));
}

using SaveSettingsTest = SettingsFileTest;

TEST_F(SaveSettingsTest, WritesThePrettyPrintedRecord) {
    SaveSettings(file_, Named("linux"));
    EXPECT_EQ(content(), ObjectToJson(Named("linux")));
    EXPECT_THAT(content(), testing::StartsWith("{\n    \"Platform\": \"linux\",\n"));
}

TEST_F(SaveSettingsTest, ReplacesALongerFile) {
    StrToFile(std::string(100'000, 'x'), file_);
    SaveSettings(file_, TSettings());
    EXPECT_EQ(content(), ObjectToJson(TSettings()));
}

TEST_F(SaveSettingsTest, LoadsWhatItSaved) {
    auto settings = Named("linux");
    settings.StatisticsProcesses = {"a", "b"};
    settings.Products = {{"N", "V", "P", "B", "F"}};
    settings.CheckEncryption = true;
    SaveSettings(file_, settings);
    EXPECT_EQ(LoadSettings(file_), settings);
}

TEST_F(SaveSettingsTest, DropsTheDaemonsKeysFromTheFile) {
    StrToFile(R"({"ServerUser": "somebody", "ServerPassword": "secret", "Platform": "linux"})", file_);
    const auto settings = LoadSettings(file_);
    EXPECT_EQ(settings.ServerUser, "somebody");
    SaveSettings(file_, settings);
    EXPECT_THAT(content(), testing::Not(HasSubstr("ServerUser")));
    EXPECT_THAT(content(), testing::Not(HasSubstr("secret")));
    EXPECT_EQ(LoadSettings(file_).ServerUser, std::nullopt);
    EXPECT_EQ(LoadSettings(file_).Platform, "linux");
}

// The one line about a save that failed.
auto SaysOnly(const std::string& reason, const fs::path& file) {
    return ElementsAre(
        testing::AllOf(testing::StartsWith("[ERROR] ["), HasSubstr(" settings_file.cpp:"),
                       EndsWith(" SaveSettings -- Can't save settings: " + reason + ", " + file.string())));
}

TEST_F(SaveSettingsTest, LogsAFolderThatDoesNotExist) {
    const auto missing = folder_ / "missing" / "settings.json";
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings(missing, TSettings()));
    EXPECT_THAT(log.lines(), SaysOnly(std::strerror(ENOENT), missing));
    EXPECT_FALSE(fs::exists(missing.parent_path()));
}

TEST_F(SaveSettingsTest, LogsAnEmptyPath) {
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings("", TSettings()));
    EXPECT_THAT(log.lines(), SaysOnly(std::strerror(ENOENT), ""));
}

TEST_F(SaveSettingsTest, LogsAFolderInPlaceOfTheFile) {
    fs::create_directory(file_);
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings(file_, TSettings()));
    EXPECT_THAT(log.lines(), SaysOnly(std::strerror(EISDIR), file_));
}

TEST_F(SaveSettingsTest, LogsAPipeAndDoesNotWaitForItsOtherEnd) {
    MakePipe(file_);
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings(file_, TSettings()));
    EXPECT_THAT(log.lines(), SaysOnly(kNotRegular, file_));
}

TEST_F(SaveSettingsTest, LogsAFullDisk) {
    fs::create_symlink("/dev/full", file_);
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings(file_, TSettings()));
    EXPECT_THAT(log.lines(), SaysOnly(std::strerror(ENOSPC), file_));
}

TEST_F(SaveSettingsTest, LogsATextBeyondTheLargestSizeOfAFile) {
    StrToFile("old", file_);
    fake::LogCapture log;
    {
        const fake::FileSizeLimit limit(100'000, SIG_DFL);
        EXPECT_NO_THROW(SaveSettings(file_, Named(std::string(200'000, 'l'))));
    }
    EXPECT_THAT(log.lines(), SaysOnly(std::strerror(EFBIG), file_));
    EXPECT_EQ(content(), "");
    SaveSettings(file_, Named("linux"));
    EXPECT_EQ(content(), ObjectToJson(Named("linux")));
}

TEST_F(SaveSettingsTest, WritesUpToTheLargestSizeOfAFile) {
    const auto settings = Named(std::string(50'000, 'l'));
    fake::LogCapture log;
    {
        const fake::FileSizeLimit limit(ObjectToJson(settings).size(), SIG_DFL);
        SaveSettings(file_, settings);
    }
    EXPECT_EQ(content(), ObjectToJson(settings));
    EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TEST_F(SaveSettingsTest, ConcurrentSavesLeaveOneWholeText) {
    const auto shortOne = Named("short");
    const auto longOne = Named(std::string(200'000, 'l'));
    fake::InThreads(4, [&](int t) {
        for (int i = 0; i < 10; ++i)
            SaveSettings(file_, t % 2 == 0 ? shortOne : longOne);
    });
    const auto settings = LoadSettings(file_);
    EXPECT_TRUE(settings == shortOne || settings == longOne);
}

using InstanceSettingsTest = SettingsFileTest;

TEST_F(InstanceSettingsTest, ReplacesEveryPlaceholderAndKeepsTheRest) {
    StrToFile("${INST_KEY} ${DEV_UUID}${INST_KEY} ${OTHER} $INST_KEY\n", file_);
    SettingsFile(file_).instance(kValues);
    EXPECT_EQ(content(), "the key the uuidthe key ${OTHER} $INST_KEY\n");
}

TEST_F(InstanceSettingsTest, ShortensTheFileWhenValuesAreShorter) {
    StrToFile(std::string(10'000, ' ') + "${INST_KEY}", file_);
    SettingsFile(file_).instance({{"  ", ""}, {"${INST_KEY}", ""}});
    EXPECT_EQ(content(), "");
}

TEST_F(InstanceSettingsTest, EscapesValuesForJson) {
    StrToFile(R"({"InstallationKey": "${INST_KEY}", "Platform": "kept"})", file_);
    std::string value = "a\"b\\c\n\t/\x7f\u00e4";
    for (char c = 0; c < ' '; ++c)
        value += c;
    SettingsFile(file_).instance({{"${INST_KEY}", value}});
    EXPECT_THAT(content(), HasSubstr(R"(a\"b\\c\n\t/)"));
    const auto settings = LoadSettings(file_);
    EXPECT_EQ(settings.InstallationKey, value);
    EXPECT_EQ(settings.Platform, "kept");
}

// The line about a file that could not be opened or locked.
auto SaysCannotLock(const std::string& reason) {
    return ElementsAre(testing::AllOf(testing::StartsWith("[ERROR] ["),
                                      EndsWith(" InstanceSettings -- Can't lock settings file: " + reason)));
}

TEST_F(InstanceSettingsTest, LogsAMissingFileAndMakesNone) {
    fake::LogCapture log;
    EXPECT_NO_THROW(SettingsFile(file_).instance(kValues));
    EXPECT_THAT(log.lines(), SaysCannotLock(std::strerror(ENOENT)));
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(InstanceSettingsTest, LogsWhatIsNoRegularFileAndDoesNotWaitForIt) {
    MakePipe(folder_ / "pipe");
    fs::create_symlink("/dev/zero", folder_ / "device");
    for (const auto* name : {"pipe", "device"}) {
        fake::LogCapture log;
        EXPECT_NO_THROW(SettingsFile(folder_ / name).instance(kValues));
        EXPECT_THAT(log.lines(), SaysCannotLock(kNotRegular));
    }
}

TEST_F(InstanceSettingsTest, ReadsNothingLargerThan64Mebibytes) {
    StrToFile("${INST_KEY}", file_);
    fs::resize_file(file_, 64 * 1024 * 1024 + 1);
    EXPECT_EQ(FailureOf([&] { SettingsFile(file_).instance(kValues); }),
              "[InstanceSettings] Can't read (" + file_.string() + ") Error: " + kTooLarge);
    EXPECT_EQ(fs::file_size(file_), 64U * 1024 * 1024 + 1);
}

TEST_F(InstanceSettingsTest, ThrowsWhenTheFileCannotBeWrittenAndKeepsTheTemplate) {
    StrToFile("${INST_KEY}", file_);
    const fake::FileSizeLimit limit(100'000, SIG_DFL);
    const auto instance = [&] { SettingsFile(file_).instance({{"${INST_KEY}", std::string(200'000, 'k')}}); };
    EXPECT_EQ(FailureOf(instance),
              "[InstanceSettings] Can't write (" + file_.string() + ") Error: " + std::strerror(EFBIG));
    EXPECT_THROW(instance(), std::runtime_error);
    EXPECT_TRUE(FailureHasCallStack(instance));
    EXPECT_EQ(content(), "${INST_KEY}");
}

TEST(NativeNameOfTest, IsTheFileNameWithoutExtension) {
    EXPECT_EQ(NativeNameOf("/opt/X.app/Contents/Linux/TessarinUserAgent"), "TessarinUserAgent");
    EXPECT_EQ(NativeNameOf("/opt/Tool.exe"), "Tool");
    EXPECT_EQ(NativeNameOf("Tool.old.exe"), "Tool.old");
    EXPECT_EQ(NativeNameOf(""), "");
}

TEST(NativeNameOfTest, LosesTheHostSuffixWhateverItsCase) {
    EXPECT_EQ(NativeNameOf("Tool.vshost.exe"), "Tool");
    EXPECT_EQ(NativeNameOf("Tool.VSHost.exe"), "Tool");
    EXPECT_EQ(NativeNameOf("Tool.vshost.vshost.exe"), "Tool.vshost");
    EXPECT_EQ(NativeNameOf("Toolvshost.exe"), "Toolvshost");
    EXPECT_EQ(NativeNameOf("Tool.vshost2.exe"), "Tool.vshost2");
}

}  // namespace
}  // namespace cmn::proto
