#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Failures.h"
#include "OtherProcess.h"
#include "SettingsFiles.h"
#include "common/SystemUtils.h"
#include "common/fs.h"
#include "common/proto_settings.h"
#include "support/InThreads.h"
#include "support/LogCapture.h"

// The settings file in the shared folder and the process's own copy. The copy starts empty once per process,
// so every test runs in a process of its own.

namespace cmn::proto {
namespace {

namespace fs = std::filesystem;
using fake::FailureHasCallStack;
using fake::FailureOf;
using fake::FailuresOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

fs::path SettingsFile() {
    return fs::path(GetSharedPath()) / "settings.json";
}

constexpr auto kProducts = R"({
    "Platform": "file", "ScanThreadCount": 3,
    "Products": [
        {"Name": "first", "NativeName": "other", "Version": "1"},
        {"Name": "own", "NativeName": "SettingsStoreTest", "Version": "2", "LastFailedVersion": "0"},
        {"Name": "own", "NativeName": "SettingsStoreTest", "Version": "3"},
        {"Name": "", "NativeName": "", "Version": "4"}
    ]
})";

class SettingsStoreTest : public testing::Test {
 protected:
    SettingsStoreTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        fs::remove(SettingsFile());
    }
    ~SettingsStoreTest() override { fs::remove(SettingsFile()); }

    static void inNewProcess(const std::function<void()>& body) {
        EXPECT_EXIT(
            {
                body();
                std::_Exit(testing::Test::HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
    static void writeFile(const std::string& json) { StrToFile(json, SettingsFile()); }
    static std::string fileText() { return FileToStr(SettingsFile()); }
};

TEST_F(SettingsStoreTest, LoadsTheFileBesideTheProgram) {
    writeFile(R"({"Platform": "file"})");
    EXPECT_EQ(LoadSettings().Platform, "file");
    fs::remove(SettingsFile());
    EXPECT_EQ(FailureOf([] { LoadSettings(); }), "Couldn't open " + SettingsFile().string());
}

TEST_F(SettingsStoreTest, SavesTheFileBesideTheProgram) {
    SaveSettings(Named("saved"));
    EXPECT_THAT(fileText(), StartsWith("{\n    \"Platform\": \"saved\",\n"));
}

TEST_F(SettingsStoreTest, FirstGetLoadsTheFileAndLaterOnesDoNot) {
    inNewProcess([] {
        writeFile(R"({"Platform": "first"})");
        EXPECT_EQ(GetSettings().Platform, "first");
        writeFile(R"({"Platform": "second"})");
        EXPECT_EQ(GetSettings().Platform, "first");
        fs::remove(SettingsFile());
        EXPECT_EQ(GetSettings().Platform, "first");
    });
}

TEST_F(SettingsStoreTest, FailedFirstLoadIsTriedAgain) {
    inNewProcess([] {
        EXPECT_THAT(FailuresOf([] { GetSettings(); }),
                    ElementsAre("Couldn't open " + SettingsFile().string(), "failed to open stream"));
        writeFile("{");
        EXPECT_THROW(GetSettings(), std::runtime_error);
        writeFile(R"({"Platform": "file"})");
        EXPECT_EQ(GetSettings().Platform, "file");
    });
}

TEST_F(SettingsStoreTest, GetReturnsACopy) {
    inNewProcess([] {
        writeFile(R"({"Platform": "file"})");
        auto copy = GetSettings();
        copy.Platform = "changed";
        EXPECT_EQ(GetSettings().Platform, "file");
    });
}

TEST_F(SettingsStoreTest, SetReplacesTheCopyAndWritesNothing) {
    inNewProcess([] {
        TSettings settings = Named("set");
        settings.ServerUser = "user";
        SetSettings(settings);
        EXPECT_EQ(GetSettings(), settings);
        EXPECT_FALSE(fs::exists(SettingsFile()));
    });
}

TEST_F(SettingsStoreTest, ChangingAnEmptyCopyStartsFromDefaultsAndNotFromTheFile) {
    inNewProcess([] {
        writeFile(R"({"Platform": "file", "UpdaterID": "file"})");
        SetSettings([](TSettings& settings) {
            EXPECT_EQ(settings, TSettings());
            settings.Platform = "changed";
        });
        EXPECT_EQ(GetSettings().Platform, "changed");
        EXPECT_EQ(GetSettings().UpdaterID, "");
        EXPECT_THAT(fileText(), HasSubstr("\"Platform\": \"file\""));
    });
}

TEST_F(SettingsStoreTest, ChangingALoadedCopyKeepsItsOtherFields) {
    inNewProcess([] {
        writeFile(R"({"Platform": "file", "UpdaterID": "file"})");
        GetSettings();
        SetSettings([](TSettings& settings) { settings.Platform = "changed"; });
        EXPECT_EQ(GetSettings().Platform, "changed");
        EXPECT_EQ(GetSettings().UpdaterID, "file");
    });
}

TEST_F(SettingsStoreTest, ChangeThatThrowsLeavesTheCopyAsItWas) {
    inNewProcess([] {
        const auto change = [] {
            SetSettings([](TSettings& settings) {
                settings.Platform = "changed";
                settings.Products.clear();
                throw std::logic_error("in the middle");
            });
        };
        EXPECT_EQ(FailureOf(change), "in the middle");
        EXPECT_EQ(GetSettings(), TSettings());
        TSettings before;
        before.Platform = "before";
        before.Products = {{"own", "1", "", "", ""}};
        SetSettings(before);
        EXPECT_THROW(change(), std::logic_error);
        EXPECT_EQ(GetSettings(), before);
    });
}

TEST_F(SettingsStoreTest, UpdateReplacesTheCopyAndTheFile) {
    inNewProcess([] {
        writeFile(R"({"Platform": "file"})");
        TSettings settings = Named("updated");
        settings.ServerUser = "only in memory";
        UpdateSettings(settings);
        EXPECT_EQ(GetSettings(), settings);
        EXPECT_EQ(LoadSettings().Platform, "updated");
        EXPECT_EQ(LoadSettings().ServerUser, std::nullopt);
    });
}

TEST_F(SettingsStoreTest, CopyCanBeReadWhileAnUpdateWaitsForTheFile) {
    inNewProcess([] {
        writeFile(R"({"Platform": "file"})");
        fake::OtherProcess other(SettingsFile());
        TSettings settings = Named("updated");
        auto update = std::async(std::launch::async, [&] { UpdateSettings(settings); });
        // Emptied before the lock is asked for.
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (FileSizeNoThrow(SettingsFile()) != 0 && std::chrono::steady_clock::now() < limit)
            std::this_thread::yield();
        auto read = std::async(std::launch::async, [] { return GetSettings(); });
        EXPECT_EQ(read.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        EXPECT_EQ(update.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
        other.letGo();
        update.get();
        EXPECT_EQ(read.get(), settings);
        EXPECT_EQ(LoadSettings().Platform, "updated");
    });
}

TEST_F(SettingsStoreTest, UpdateKeepsTheCopyWhenTheFileCannotBeWritten) {
    inNewProcess([] {
        fs::create_directory(SettingsFile());
        TSettings settings = Named("updated");
        EXPECT_NO_THROW(UpdateSettings(settings));
        EXPECT_EQ(GetSettings().Platform, "updated");
    });
}

TEST_F(SettingsStoreTest, ThreadCountIsGivenFromOneOn) {
    inNewProcess([] {
        writeFile(R"({"ScanThreadCount": "4"})");
        EXPECT_EQ(GetScanThreadCount(), 4U);
        for (const int none : {0, -1, -2'147'483'647}) {
            SetSettings([&](TSettings& settings) { settings.ScanThreadCount = none; });
            EXPECT_EQ(GetScanThreadCount(), std::nullopt) << none;
        }
        SetSettings([](TSettings& settings) { settings.ScanThreadCount = 1; });
        EXPECT_EQ(GetScanThreadCount(), 1U);
    });
}

TEST_F(SettingsStoreTest, ThreadCountOfAnEmptyObjectIsEmpty) {
    inNewProcess([] {
        writeFile("{}");
        EXPECT_EQ(GetScanThreadCount(), std::nullopt);
    });
}

TEST_F(SettingsStoreTest, NativeNameIsTheProgramsBaseName) {
    EXPECT_EQ(GetCurrentProductNativeName(), "SettingsStoreTest");
}

TEST_F(SettingsStoreTest, FindsTheFirstProductOfAName) {
    inNewProcess([] {
        writeFile(kProducts);
        EXPECT_EQ(GetProduct("first").Version, "1");
        EXPECT_EQ(GetProduct("own").Version, "2");
        EXPECT_EQ(GetProduct(LoadSettings(), "own").Version, "2");
    });
}

TEST_F(SettingsStoreTest, EmptyNameIsTheRunningProgramsOwnProduct) {
    inNewProcess([] {
        writeFile(kProducts);
        EXPECT_EQ(GetProduct("").Version, "2");
        EXPECT_EQ(GetProduct(LoadSettings(), "").Name, "own");
    });
}

TEST_F(SettingsStoreTest, UnknownProductNamesAreReported) {
    inNewProcess([] {
        writeFile(kProducts);
        EXPECT_EQ(FailureOf([] { GetProduct("FIRST"); }), "Unknown product name -- FIRST");
        // A native name is no name.
        EXPECT_EQ(FailureOf([] { GetProduct("SettingsStoreTest"); }),
                  "Unknown product name -- SettingsStoreTest");
        EXPECT_EQ(FailureOf([] { GetProduct(TSettings(), ""); }),
                  "Unknown product name -- SettingsStoreTest");
        EXPECT_EQ(FailureOf([] { SetProductVersion("none", "9"); }), "Unknown product name -- none");
        EXPECT_EQ(FailureOf([] { SetProductLastFailedVersion("none", "9"); }),
                  "Unknown product name -- none");
        EXPECT_THROW(GetProduct("none"), std::runtime_error);
    });
}

TEST_F(SettingsStoreTest, UnknownProductNameCarriesACallStack) {
    EXPECT_TRUE(FailureHasCallStack([] { GetProduct(TSettings(), "none"); }));
}

TEST_F(SettingsStoreTest, SetVersionLoadsTheFileAndChangesTheCopyAlone) {
    inNewProcess([] {
        writeFile(kProducts);
        SetProductVersion("first", "9");
        EXPECT_EQ(GetProduct("first").Version, "9");
        EXPECT_EQ(GetProduct("first").LastFailedVersion, "");
        EXPECT_EQ(GetSettings().Platform, "file");
        EXPECT_EQ(fileText(), kProducts);
    });
}

TEST_F(SettingsStoreTest, SetVersionWithoutNameChangesTheRunningProgramsProduct) {
    inNewProcess([] {
        writeFile(kProducts);
        SetProductVersion("", "9");
        std::vector<std::string> versions;
        for (const auto& product : GetSettings().Products)
            versions.push_back(product.Version);
        EXPECT_THAT(versions, ElementsAre("1", "9", "3", "4"));
    });
}

TEST_F(SettingsStoreTest, SetLastFailedVersionLoadsTheFileAndChangesTheCopyAlone) {
    inNewProcess([] {
        writeFile(kProducts);
        SetProductLastFailedVersion("", "9");
        EXPECT_EQ(GetProduct("own").LastFailedVersion, "9");
        EXPECT_EQ(GetProduct("own").Version, "2");
        EXPECT_EQ(fileText(), kProducts);
    });
}

TEST_F(SettingsStoreTest, SetVersionWithoutFileThrowsAndLeavesTheCopyEmpty) {
    inNewProcess([] {
        EXPECT_THROW(SetProductVersion("first", "9"), std::runtime_error);
        writeFile(kProducts);
        EXPECT_EQ(GetProduct("first").Version, "1");
    });
}

TEST_F(SettingsStoreTest, ChangesInMemoryReachTheFileWithTheNextUpdate) {
    inNewProcess([] {
        writeFile(kProducts);
        SetProductVersion("first", "9");
        UpdateSettings(GetSettings());
        EXPECT_EQ(GetProduct(LoadSettings(), "first").Version, "9");
    });
}

TEST_F(SettingsStoreTest, InstancingFillsTheTemplates) {
    writeFile(R"({"InstallationKey": "${INST_KEY}", "DeviceUUID": "${DEV_UUID}", "ScanRoot": "${SCAN_ROOT}",
                  "Products": [{"Name": "${INST_KEY}", "InstallPath": "${INST_PATH}"}]})");
    InstanceSettings("the key", "/the/root", "the uuid");
    const auto settings = LoadSettings();
    EXPECT_EQ(settings.InstallationKey, "the key");
    EXPECT_EQ(settings.DeviceUUID, "the uuid");
    EXPECT_EQ(settings.ScanRoot, "/the/root");
    ASSERT_EQ(settings.Products.size(), 1U);
    EXPECT_EQ(settings.Products[0].Name, "the key");
    EXPECT_EQ(settings.Products[0].InstallPath, GetSharedPath());
}

TEST_F(SettingsStoreTest, InstancingOfAnotherFileFillsInItsFolder) {
    const fake::TemporaryFolder folder;
    StrToFile(R"({"InstallationKey": "${INST_KEY}", "ScanRoot": "${INST_PATH}"})", folder / "file");
    InstanceSettings(folder / "file", "a \"quoted\" key", "/the/root", "the uuid");
    const auto settings = LoadSettings(folder / "file");
    EXPECT_EQ(settings.InstallationKey, "a \"quoted\" key");
    EXPECT_EQ(settings.ScanRoot, folder.path());
    EXPECT_FALSE(fs::exists(SettingsFile()));
}

TEST_F(SettingsStoreTest, InstancingInventsAUuidAndTakesTheConsoleUsersHome) {
    writeFile(R"({"DeviceUUID": "${DEV_UUID}", "ScanRoot": "${SCAN_ROOT}"})");
    InstanceSettings("", {}, "");
    const auto settings = LoadSettings();
    EXPECT_THAT(settings.DeviceUUID,
                testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    EXPECT_EQ(settings.ScanRoot, GetUsersRoot() + "/" + GetCurrentUserName());
}

TEST_F(SettingsStoreTest, InstancingWithoutFileIsLogged) {
    fake::LogCapture log;
    InstanceSettings("key", "/root", "uuid");
    EXPECT_TRUE(log.contains(" InstanceSettings -- Can't lock settings file: "));
    EXPECT_FALSE(fs::exists(SettingsFile()));
}

TEST_F(SettingsStoreTest, TestSettingsStayInMemory) {
    inNewProcess([] {
        SetDefaultTestSettings(77, "/scan/root");
        const auto settings = GetSettings();
        EXPECT_EQ(settings.DeviceId, 77U);
        EXPECT_EQ(settings.ScanRoot, "/scan/root");
        EXPECT_FALSE(fs::exists(SettingsFile()));
    });
}

TEST_F(SettingsStoreTest, ManyThreadsMayReadAndChangeTheCopy) {
    TSettings start;
    start.Products = {{"own", "0", "", "", "0"}};
    SetSettings(start);
    fake::InThreads(4, [](int) {
        for (int i = 0; i < 200; ++i) {
            SetSettings([](TSettings& settings) { ++settings.UpdaterTimeout; });
            SetProductVersion("own", std::to_string(i));
            SetProductLastFailedVersion("own", GetProduct("own").Version);
            EXPECT_EQ(GetSettings().Products.size(), 1U);
        }
    });
    EXPECT_EQ(GetSettings().UpdaterTimeout, 800);
    EXPECT_EQ(GetProduct("own").Version, "199");
}

TEST_F(SettingsStoreTest, ConcurrentUpdatesLeaveOneOfThemInTheFile) {
    fake::InThreads(4, [](int t) {
        TSettings settings;
        settings.Platform = std::string(static_cast<std::size_t>(1'000 * t), 'x');
        settings.UpdaterTimeout = t;
        for (int i = 0; i < 5; ++i)
            UpdateSettings(settings);
    });
    const auto settings = LoadSettings();
    EXPECT_EQ(settings.Platform.size(), 1'000U * static_cast<unsigned int>(settings.UpdaterTimeout));
}

}  // namespace
}  // namespace cmn::proto
