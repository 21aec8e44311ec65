#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <boost/interprocess/exceptions.hpp>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "Failures.h"
#include "common/fs.h"
#include "common/settings_json.h"
#include "settings_file.h"
#include "support/LogCapture.h"

namespace cmn::proto {
namespace {

namespace fs = std::filesystem;
using boost::interprocess::interprocess_exception;
using fake::FailureOf;
using fake::FailuresOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

// The clock of these tests. Its deadlines are over: who finds a lock taken does not wait.
SettingsTime LongAgo() {
    return SettingsTime(std::chrono::seconds(1'000'000'000));
}

// A lock that does what the test says and asserts how it is used.
class FakeLock : public SettingsLock {
 public:
    explicit FakeLock(
        std::function<bool()> onLock, std::function<void()> onRelease = [] {})
        : onLock_(std::move(onLock)), onRelease_(std::move(onRelease)) {}
    ~FakeLock() override { onRelease_(); }
    bool lock(SettingsTime deadline) override {
        EXPECT_EQ(deadline, LongAgo() + std::chrono::seconds(60));
        return onLock_();
    }

 private:
    std::function<bool()> onLock_;
    std::function<void()> onRelease_;
};

OpenSettingsLock Opening(
    const std::function<bool()>& onLock, const std::function<void()>& onRelease = [] {}) {
    return [=](const fs::path&) { return std::make_unique<FakeLock>(onLock, onRelease); };
}

std::unique_ptr<SettingsLock> FailToOpen(const fs::path&) {
    throw interprocess_exception("the lock's error");
}

class SettingsFileTest : public testing::Test {
 protected:
    std::string content() const { return FileToStr(file_); }

    const fake::TemporaryFolder folder_;
    const fs::path file_ = folder_ / "settings.json";
    const std::string couldNotOpen_ = "Couldn't open " + file_.string();
};

TSettings Named(const std::string& platform) {
    TSettings settings;
    settings.Platform = platform;
    return settings;
}

using LoadSettingsTest = SettingsFileTest;

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
                ElementsAre(couldNotOpen_, "failed to open stream"));
}

TEST_F(LoadSettingsTest, EmptyFileIsAnErrorWithItsCauseInside) {
    StrToFile("", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                ElementsAre(couldNotOpen_, "Invalid json -- err: 1 offs: 0"));
}

TEST_F(LoadSettingsTest, TruncatedFileIsAnErrorWithItsCauseInside) {
    const auto whole = ObjectToJson(Named("linux"));
    for (const auto size : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
        StrToFile(whole.substr(0, size), file_);
        const auto failures = FailuresOf([&] { LoadSettings(file_); });
        ASSERT_EQ(failures.size(), 2U) << size;
        EXPECT_EQ(failures[0], couldNotOpen_);
        EXPECT_THAT(failures[1], testing::StartsWith("Invalid json -- err: "));
    }
}

TEST_F(LoadSettingsTest, AnythingButAnObjectIsAnErrorWithItsCauseInside) {
    for (const auto* json : {"[]", "1", "null", R"({"Products": 1})"}) {
        StrToFile(json, file_);
        EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }), ElementsAre(couldNotOpen_, "JsonToObjectImpl"));
    }
}

TEST_F(LoadSettingsTest, WrongBoolIsAnErrorWithItsCauseInside) {
    StrToFile(R"({"DecryptOnly": "True"})", file_);
    EXPECT_THAT(FailuresOf([&] { LoadSettings(file_); }),
                ElementsAre(couldNotOpen_, "Unexpected string value (True) for bool type"));
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
    EXPECT_EQ(failures[0], couldNotOpen_);
}

TEST_F(LoadSettingsTest, ReadsFiftyMegabytes) {
    std::string large;
    large.resize(50'000'000, 'a');
    StrToFile(R"({"Unknown": ")" + large + R"(", "ScanRoot": ")" + large + "\"}", file_);
    EXPECT_EQ(LoadSettings(file_).ScanRoot, large);
}

TEST_F(LoadSettingsTest, LockErrorIsLoggedAndGivesDefaults) {
    StrToFile(R"({"Platform": "linux"})", file_);
    fake::LogCapture log;
    const auto settings = LoadSettingsWith(
        file_, [](std::ifstream&) -> TSettings { throw interprocess_exception("the lock's error"); });
    EXPECT_EQ(settings, TSettings());
    EXPECT_THAT(log.lines(), ElementsAre(testing::AllOf(
                                 testing::StartsWith("[ERROR] ["), HasSubstr(" settings_file.cpp:"),
                                 EndsWith(" LoadSettings -- Can't load settings: the lock's error"))));
}

TEST_F(LoadSettingsTest, TakesNoLock) {
    StrToFile(R"({"Platform": "linux"})", file_);
    // A file of which only reading is allowed could not be locked for writing.
    fs::permissions(file_, fs::perms::owner_read);
    EXPECT_EQ(LoadSettings(file_).Platform, "linux");
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

TEST_F(SaveSettingsTest, EmptiesTheFileBeforeItAsksForTheLock) {
    StrToFile("old", file_);
    std::string atOpen = "never opened";
    SaveSettingsWith(
        file_, TSettings(),
        [&](const fs::path& path) {
            EXPECT_EQ(path, file_);
            atOpen = content();
            return std::make_unique<FakeLock>([] { return true; });
        },
        LongAgo);
    EXPECT_EQ(atOpen, "");
}

TEST_F(SaveSettingsTest, HasWrittenEverythingWhenItReleasesTheLock) {
    std::string atRelease;
    SaveSettingsWith(file_, Named("linux"), Opening([] { return true; }, [&] { atRelease = content(); }),
                     LongAgo);
    EXPECT_EQ(atRelease, ObjectToJson(Named("linux")));
}

TEST_F(SaveSettingsTest, LeavesNothingOfALongerTextThatTheLocksOwnerWrote) {
    SaveSettingsWith(file_, TSettings(), Opening([&] {
                         StrToFile(std::string(100'000, 'x'), file_);
                         return true;
                     }),
                     LongAgo);
    EXPECT_EQ(content(), ObjectToJson(TSettings()));
}

TEST_F(SaveSettingsTest, ThrowsWhenTheLockIsNotToBeHadInTime) {
    StrToFile("old", file_);
    const auto save = [&] { SaveSettingsWith(file_, TSettings(), Opening([] { return false; }), LongAgo); };
    EXPECT_THAT(FailuresOf(save), ElementsAre("can't get lock for save settings to file: " + file_.string()));
    EXPECT_THROW(save(), std::runtime_error);
    EXPECT_EQ(content(), "");
}

TEST_F(SaveSettingsTest, TimeoutCarriesACallStack) {
    try {
        SaveSettingsWith(file_, TSettings(), Opening([] { return false; }), LongAgo);
        FAIL();
    } catch (const boost::exception& e) {
        EXPECT_NE(boost::get_error_info<tag_stacktrace>(e), nullptr);
    }
}

TEST_F(SaveSettingsTest, LogsALockThatCannotBeOpened) {
    StrToFile("old", file_);
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettingsWith(file_, TSettings(), FailToOpen, LongAgo));
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::AllOf(
                    testing::StartsWith("[ERROR] ["),
                    EndsWith(" SaveSettings -- Can't save settings: the lock's error, " + file_.string()))));
    EXPECT_EQ(content(), "");
}

TEST_F(SaveSettingsTest, LogsALockThatFailsWhenTaken) {
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettingsWith(
        file_, TSettings(), Opening([]() -> bool { throw interprocess_exception("the lock's error"); }),
        LongAgo));
    EXPECT_TRUE(log.contains("SaveSettings -- Can't save settings: the lock's error, " + file_.string()));
}

TEST_F(SaveSettingsTest, LogsAFolderThatDoesNotExist) {
    const auto missing = folder_ / "missing" / "settings.json";
    fake::LogCapture log;
    EXPECT_NO_THROW(SaveSettings(missing, TSettings()));
    EXPECT_TRUE(log.contains("SaveSettings -- Can't save settings: " + std::string(std::strerror(ENOENT)) +
                             ", " + missing.string()));
    EXPECT_FALSE(fs::exists(missing.parent_path()));
}

TEST_F(SaveSettingsTest, SurvivesAFullDisk) {
    fs::create_symlink("/dev/full", file_);
    EXPECT_NO_THROW(SaveSettings(file_, TSettings()));
}

TEST_F(SaveSettingsTest, ConcurrentSavesLeaveOneWholeText) {
    const auto shortOne = Named("short");
    const auto longOne = Named(std::string(200'000, 'l'));
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i)
                SaveSettings(file_, t % 2 == 0 ? shortOne : longOne);
        });
    }
    for (auto& thread : threads)
        thread.join();
    const auto settings = LoadSettings(file_);
    EXPECT_TRUE(settings == shortOne || settings == longOne);
}

// Another process that holds the lock of a file, from the constructor until it is told to let go.
class OtherProcess {
 public:
    explicit OtherProcess(const fs::path& path) {
        EXPECT_EQ(pipe(ready_.data()), 0);
        EXPECT_EQ(pipe(go_.data()), 0);
        const std::string name = path.string();
        pid_ = fork();
        if (pid_ == 0)
            holdLock(name.c_str());
        char byte = 0;
        EXPECT_EQ(read(ready_[0], &byte, 1), 1);
    }
    ~OtherProcess() {
        letGo();
        for (const int fd : {ready_[0], ready_[1], go_[0]})
            close(fd);
    }
    // Writes to the file first, as the owner of the lock may.
    void letGo() {
        if (pid_ < 0)
            return;
        close(go_[1]);
        int status = -1;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_EQ(status, 0);
        pid_ = -1;
    }

 private:
    [[noreturn]] void holdLock(const char* path) {
        close(go_[1]);
        const int fd = open(path, O_RDWR | O_CREAT, 0600);
        struct flock all {};
        all.l_type = F_WRLCK;
        if (fd < 0 || fcntl(fd, F_SETLK, &all) != 0)
            _exit(1);
        char byte = 'r';
        if (write(ready_[1], &byte, 1) != 1 || read(go_[0], &byte, 1) != 0)
            _exit(2);
        static const std::array<char, 8'192> kGarbage{};
        if (write(fd, kGarbage.data(), kGarbage.size()) != static_cast<ssize_t>(kGarbage.size()))
            _exit(3);
        _exit(0);
    }

    std::array<int, 2> ready_{};
    std::array<int, 2> go_{};
    pid_t pid_ = -1;
};

TEST_F(SaveSettingsTest, WaitsForAnotherProcessToGiveUpTheLock) {
    OtherProcess other(file_);
    StrToFile("old", file_);
    auto saved = std::async(std::launch::async, [&] { SaveSettings(file_, Named("linux")); });
    while (FileSizeNoThrow(file_) != 0)  // emptied before the lock is asked for
        std::this_thread::yield();
    EXPECT_EQ(saved.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    other.letGo();
    saved.get();
    EXPECT_EQ(content(), ObjectToJson(Named("linux")));
}

TEST_F(SettingsFileTest, LockOfAFileExcludesOtherProcessesAndHasADeadline) {
    OtherProcess other(file_);
    const auto lock = OpenSettingsFileLock(file_);
    EXPECT_FALSE(lock->lock(LongAgo()));
    EXPECT_FALSE(lock->lock(SettingsNow() + std::chrono::milliseconds(20)));
    other.letGo();
    EXPECT_TRUE(lock->lock(LongAgo()));
}

TEST_F(SettingsFileTest, LockOfAMissingFileCannotBeOpened) {
    EXPECT_EQ(FailureOf([&] { OpenSettingsFileLock(file_); }), std::strerror(ENOENT));
    EXPECT_THROW(OpenSettingsFileLock(file_), interprocess_exception);
}

using InstanceSettingsTest = SettingsFileTest;

const std::map<std::string, std::string> kValues{{"${INST_KEY}", "the key"}, {"${DEV_UUID}", "the uuid"}};

TEST_F(InstanceSettingsTest, ReplacesEveryPlaceholderAndKeepsTheRest) {
    StrToFile("${INST_KEY} ${DEV_UUID}${INST_KEY} ${OTHER} $INST_KEY\n", file_);
    InstanceSettingsWith(file_, kValues, OpenSettingsFileLock, SettingsNow);
    EXPECT_EQ(content(), "the key the uuidthe key ${OTHER} $INST_KEY\n");
}

TEST_F(InstanceSettingsTest, ShortensTheFileWhenValuesAreShorter) {
    StrToFile(std::string(10'000, ' ') + "${INST_KEY}", file_);
    InstanceSettingsWith(file_, {{"  ", ""}, {"${INST_KEY}", ""}}, OpenSettingsFileLock, SettingsNow);
    EXPECT_EQ(content(), "");
}

TEST_F(InstanceSettingsTest, TouchesTheFileOnlyUnderTheLock) {
    StrToFile("${INST_KEY}", file_);
    std::string atLock;
    std::string atRelease;
    InstanceSettingsWith(file_, kValues,
                         Opening(
                             [&] {
                                 atLock = content();
                                 return true;
                             },
                             [&] { atRelease = content(); }),
                         LongAgo);
    EXPECT_EQ(atLock, "${INST_KEY}");
    EXPECT_EQ(atRelease, "the key");
}

TEST_F(InstanceSettingsTest, ThrowsWhenTheLockIsNotToBeHadInTime) {
    StrToFile("${INST_KEY}", file_);
    const auto instance = [&] {
        InstanceSettingsWith(file_, kValues, Opening([] { return false; }), LongAgo);
    };
    EXPECT_THAT(FailuresOf(instance), ElementsAre("can't get lock"));
    EXPECT_THROW(instance(), std::runtime_error);
    EXPECT_EQ(content(), "${INST_KEY}");
}

TEST_F(InstanceSettingsTest, LogsALockThatCannotBeOpened) {
    fake::LogCapture log;
    EXPECT_NO_THROW(InstanceSettingsWith(file_, kValues, FailToOpen, LongAgo));
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::AllOf(
                    testing::StartsWith("[ERROR] ["),
                    EndsWith(" InstanceSettings -- Can't lock settings file: the lock's error"))));
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(InstanceSettingsTest, LogsAMissingFile) {
    fake::LogCapture log;
    EXPECT_NO_THROW(InstanceSettingsWith(file_, kValues, OpenSettingsFileLock, SettingsNow));
    EXPECT_TRUE(
        log.contains(" InstanceSettings -- Can't lock settings file: " + std::string(std::strerror(ENOENT))));
    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(InstanceSettingsTest, KeepsTheLockOfAnotherProcessOut) {
    StrToFile("${INST_KEY}", file_);
    OtherProcess other(file_);
    std::promise<void> opened;
    auto done = std::async(std::launch::async, [&] {
        // What it replaces is only there when the other process has let go.
        InstanceSettingsWith(
            file_, {{std::string(1, '\0'), "x"}},
            [&](const fs::path& path) {
                auto lock = OpenSettingsFileLock(path);
                opened.set_value();
                return lock;
            },
            SettingsNow);
    });
    opened.get_future().wait();
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(content(), "${INST_KEY}");
    other.letGo();
    done.get();
    EXPECT_EQ(content(), std::string(8'192, 'x'));
}

// Several threads of this process at one file.
class SettingsThreadsTest : public SettingsFileTest {
 protected:
    // They call `meanwhile` in another thread while the file is theirs.
    void save(const std::function<void()>& meanwhile) const {
        SaveSettingsWith(file_, TSettings(), InAnotherThread(meanwhile), LongAgo);
    }
    void instance(const std::function<void()>& meanwhile) const {
        InstanceSettingsWith(file_, kValues, InAnotherThread(meanwhile), LongAgo);
    }
    // Closing a descriptor of the file would give the owner's lock up.
    void expectNothingElseTouchesIt() const {
        const auto before = content();
        const auto open = [](const fs::path&) -> std::unique_ptr<SettingsLock> {
            ADD_FAILURE() << "opened beside another thread";
            throw interprocess_exception("opened");
        };
        EXPECT_THAT(FailuresOf([&] { SaveSettingsWith(file_, TSettings(), open, LongAgo); }),
                    ElementsAre("can't get lock for save settings to file: " + file_.string()));
        EXPECT_THAT(FailuresOf([&] { InstanceSettingsWith(file_, kValues, open, LongAgo); }),
                    ElementsAre("can't get lock"));
        EXPECT_EQ(content(), before);
    }

 private:
    static OpenSettingsLock InAnotherThread(const std::function<void()>& meanwhile) {
        return Opening([=] {
            std::async(std::launch::async, meanwhile).get();
            return true;
        });
    }
};

TEST_F(SettingsThreadsTest, NoneTouchesTheFileBesideASave) {
    bool tried = false;
    save([&] {
        expectNothingElseTouchesIt();
        tried = true;
    });
    EXPECT_TRUE(tried);
    EXPECT_EQ(content(), ObjectToJson(TSettings()));
}

TEST_F(SettingsThreadsTest, NoneTouchesTheFileBesideAnInstancing) {
    StrToFile("${INST_KEY}", file_);
    bool tried = false;
    instance([&] {
        expectNothingElseTouchesIt();
        EXPECT_EQ(content(), "${INST_KEY}");
        tried = true;
    });
    EXPECT_TRUE(tried);
    EXPECT_EQ(content(), "the key");
}

// Keeps the deadline it is asked with.
class DeadlineLock : public SettingsLock {
 public:
    explicit DeadlineLock(SettingsTime& seen) : seen_(seen) {}
    bool lock(SettingsTime deadline) override {
        seen_ = deadline;
        return true;
    }

 private:
    SettingsTime& seen_;
};

TEST_F(SettingsThreadsTest, OneDeadlineCoversTheWaitForAThreadAndTheOneForAProcess) {
    for (const bool saves : {true, false}) {
        StrToFile("${INST_KEY}", file_);
        std::vector<SettingsTime> readings;
        SettingsTime deadline;
        std::promise<void> begun;
        const auto now = [&] {
            readings.push_back(SettingsNow());
            if (readings.size() == 1)
                begun.set_value();
            return readings.back();
        };
        const auto open = [&](const fs::path&) { return std::make_unique<DeadlineLock>(deadline); };
        std::future<void> second;
        instance([&] {
            second = std::async(std::launch::async, [&] {
                if (saves)
                    SaveSettingsWith(file_, Named("second"), open, now);
                else
                    InstanceSettingsWith(file_, {{"the", "a"}}, open, now);
            });
            begun.get_future().wait();
            EXPECT_EQ(second.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        });
        second.get();
        EXPECT_EQ(content(), saves ? ObjectToJson(Named("second")) : "a key");
        ASSERT_EQ(readings.size(), 1U);
        EXPECT_EQ(deadline, readings[0] + std::chrono::seconds(60));
    }
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
