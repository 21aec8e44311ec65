#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <boost/interprocess/exceptions.hpp>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Failures.h"
#include "OtherProcess.h"
#include "SettingsFiles.h"
#include "common/settings_json.h"
#include "support/LogCapture.h"

// Settings files that several processes and threads work on.

namespace cmn::proto {
namespace {

namespace fs = std::filesystem;
using boost::interprocess::interprocess_exception;
using fake::FailureHasCallStack;
using fake::FailuresOf;
using fake::OtherProcess;
using testing::ElementsAre;
using testing::EndsWith;
using Opening = LockedFile::Opening;

// A file that does what the test says and writes down how it is used.
class FakeFile : public LockedFile {
 public:
    struct Script {
        std::function<bool()> onLock = [] { return true; };
        std::function<bool()> onLook = [] { return true; };
        std::function<void()> onReplace = [] {};
        std::vector<std::string> calls;
    };

    explicit FakeFile(Script& script) : script_(script) {}
    ~FakeFile() override { script_.calls.emplace_back("close"); }
    bool tryLock() override {
        note("lock");
        return script_.onLock();
    }
    bool isAt(const fs::path& /*path*/) const override {
        note("look");
        return script_.onLook();
    }
    std::string read(std::size_t limit) override {
        EXPECT_EQ(limit, 64U * 1024 * 1024);
        note("read");
        return "${INST_KEY}";
    }
    void replace(const std::string& text) override {
        note("replace with " + text);
        script_.onReplace();
    }

    static SettingsFile::Open opening(Script& script) {
        return [&script](const fs::path&, Opening opening) {
            constexpr std::array<const char*, 3> kNames{"existing", "kept", "emptied"};
            script.calls.emplace_back(std::string("open ") + kNames.at(static_cast<std::size_t>(opening)));
            return std::make_unique<FakeFile>(script);
        };
    }

 private:
    void note(const std::string& call) const { script_.calls.push_back(call); }

    Script& script_;
};

class SettingsLockTest : public SettingsFileTest {
 protected:
    // With the script's file and the clock.
    SettingsFile scripted() { return SettingsFile(file_, clock_.get(), FakeFile::opening(script_)); }
    void save() { scripted().save(TSettings()); }
    void instance() { scripted().instance(kValues); }

    FakeFile::Script script_;
    VirtualClock clock_;
    const std::string replaced_ = "replace with " + ObjectToJson(TSettings());
};

TEST_F(SettingsLockTest, SaveEmptiesTheFileThenLocksWritesAndClosesIt) {
    save();
    EXPECT_THAT(script_.calls, ElementsAre("open emptied", "lock", "look", replaced_, "close"));
}

TEST_F(SettingsLockTest, InstancingReadsAndWritesUnderTheLock) {
    instance();
    EXPECT_THAT(script_.calls,
                ElementsAre("open existing", "lock", "look", "read", "replace with the key", "close"));
}

TEST_F(SettingsLockTest, BothGiveUpAfterSixtySeconds) {
    script_.onLock = [] { return false; };
    EXPECT_THAT(FailuresOf([&] { save(); }), ElementsAre(TimedOutSaving(file_)));
    EXPECT_EQ(clock_.pauses(), 60);
    EXPECT_THAT(FailuresOf([&] { instance(); }), ElementsAre(kTimedOutInstancing));
    EXPECT_EQ(clock_.pauses(), 120);
    EXPECT_THROW(save(), std::runtime_error);
    EXPECT_THROW(instance(), std::runtime_error);
    EXPECT_THAT(script_.calls, testing::Not(testing::Contains("look")));
}

TEST_F(SettingsLockTest, BothTimeoutsCarryACallStack) {
    script_.onLock = [] { return false; };
    EXPECT_TRUE(FailureHasCallStack([&] { save(); }));
    EXPECT_TRUE(FailureHasCallStack([&] { instance(); }));
}

TEST_F(SettingsLockTest, ErrorsOfTheLockAreLogged) {
    const auto fail = []() -> bool { throw interprocess_exception("the lock's error"); };
    const auto saying = [](const std::string& text) {
        return ElementsAre(testing::AllOf(testing::StartsWith("[ERROR] ["), EndsWith(text)));
    };
    for (auto when : {&FakeFile::Script::onLock, &FakeFile::Script::onLook}) {
        script_ = {};
        script_.*when = fail;
        fake::LogCapture log;
        EXPECT_NO_THROW(save());
        EXPECT_THAT(log.lines(),
                    saying(" SaveSettings -- Can't save settings: the lock's error, " + file_.string()));
    }
    for (auto when : {&FakeFile::Script::onLock, &FakeFile::Script::onLook}) {
        script_ = {};
        script_.*when = fail;
        fake::LogCapture log;
        EXPECT_NO_THROW(instance());
        EXPECT_THAT(log.lines(), saying(" InstanceSettings -- Can't lock settings file: the lock's error"));
    }
}

TEST_F(SettingsLockTest, GivesUpOnAFileThatIsReplacedWithoutEnd) {
    script_.onLook = [&] {
        clock_.advance(std::chrono::seconds(15));
        return false;
    };
    EXPECT_THAT(FailuresOf([&] { save(); }), ElementsAre(TimedOutSaving(file_)));
    EXPECT_EQ(std::count(script_.calls.begin(), script_.calls.end(), "look"), 4);
}

// The rest is about real files.
class SettingsWaitTest : public SettingsFileTest {
 protected:
    SettingsWaitTest() {
        StrToFile("${INST_KEY}", file_);
        lock_ = locked(file_);
    }
    static std::unique_ptr<LockedFile> locked(const fs::path& path) {
        auto file = OpenLockedFile(path, Opening::existing);
        EXPECT_TRUE(file->tryLock());
        return file;
    }
    // They call `meanwhile` while they wait for the lock; without a word to the contrary it is free then.
    void saveWith(const std::function<void()>& meanwhile) {
        SettingsFile(file_, clock(meanwhile)).save(saved_);
    }
    void instanceWith(const std::function<void()>& meanwhile) {
        SettingsFile(file_, clock(meanwhile)).instance(kValues);
    }
    void renameOverIt(const std::string& text) const {
        StrToFile(text, folder_ / "new");
        fs::rename(folder_ / "new", file_);
    }

    const TSettings saved_ = Named("saved");
    std::unique_ptr<LockedFile> lock_;  // somebody else's

 private:
    SettingsClock clock(const std::function<void()>& meanwhile) {
        clock_.emplace([=, this](int pause) {
            if (pause == 1) {
                meanwhile();
                lock_.reset();
            }
        });
        return clock_->get();
    }

    std::optional<VirtualClock> clock_;
};

TEST_F(SettingsWaitTest, SaveEmptiesTheFileBeforeItHasTheLock) {
    std::string meanwhile = "never waited";
    saveWith([&] { meanwhile = content(); });
    EXPECT_EQ(meanwhile, "");
    EXPECT_EQ(content(), ObjectToJson(saved_));
}

TEST_F(SettingsWaitTest, SaveLeavesNothingOfALongerTextThatTheLocksOwnerWrote) {
    saveWith([&] { lock_->replace(std::string(100'000, 'x')); });
    EXPECT_EQ(content(), ObjectToJson(saved_));
}

TEST_F(SettingsWaitTest, InstancingTakesWhatTheLocksOwnerWrote) {
    std::string meanwhile;
    instanceWith([&] {
        meanwhile = content();
        lock_->replace("changed ${INST_KEY}");
    });
    EXPECT_EQ(meanwhile, "${INST_KEY}");
    EXPECT_EQ(content(), "changed the key");
}

TEST_F(SettingsWaitTest, InstancingCountsTheBytesThatAreThereWhenItHasTheLock) {
    lock_->replace("");
    fs::resize_file(file_, 64 * 1024 * 1024 + 1);
    instanceWith([&] { lock_->replace("short ${INST_KEY}"); });
    EXPECT_EQ(content(), "short the key");
}

TEST_F(SettingsWaitTest, SaveGoesToTheFileThatWasRenamedOverTheOneItWaitedFor) {
    fs::create_hard_link(file_, folder_ / "old");
    saveWith([&] { renameOverIt(std::string(100'000, 'n')); });
    EXPECT_EQ(content(), ObjectToJson(saved_));
    EXPECT_EQ(FileToStr(folder_ / "old"), "");
}

TEST_F(SettingsWaitTest, SaveDoesNotEmptyAFileThatWasRenamedOverTheOneItWaitedForWithoutItsLock) {
    std::unique_ptr<LockedFile> other;
    EXPECT_THAT(FailuresOf([&] {
                    saveWith([&] {
                        renameOverIt("somebody's");
                        other = locked(file_);
                    });
                }),
                ElementsAre(TimedOutSaving(file_)));
    EXPECT_EQ(content(), "somebody's");
}

TEST_F(SettingsWaitTest, SaveMakesTheFileAgainThatWasRemovedMeanwhile) {
    saveWith([&] { fs::remove(file_); });
    EXPECT_EQ(content(), ObjectToJson(saved_));
}

TEST_F(SettingsWaitTest, InstancingFillsTheFileThatWasRenamedOverTheOneItWaitedFor) {
    instanceWith([&] { renameOverIt("new ${DEV_UUID}"); });
    EXPECT_EQ(content(), "new the uuid");
}

TEST_F(SettingsWaitTest, AnotherProcessIsWaitedFor) {
    lock_.reset();
    std::string meanwhile = "never waited";
    std::optional<OtherProcess> other(file_);
    VirtualClock clock([&](int) {
        meanwhile = content();
        other.reset();  // leaves its garbage
    });
    SettingsFile(file_, clock.get()).save(saved_);
    EXPECT_EQ(meanwhile, "");
    EXPECT_EQ(content(), ObjectToJson(saved_));

    other.emplace(file_);
    // What it replaces is only there when the other process has let go.
    SettingsFile(file_, clock.get()).instance({{std::string(1, '\0'), "x"}});
    EXPECT_EQ(content().substr(0, OtherProcess::kGarbageSize), std::string(OtherProcess::kGarbageSize, 'x'));
}

TEST_F(SettingsWaitTest, LoadWaitsForNobody) {
    lock_->replace(R"({"Platform": "linux"})");
    const auto load = [&] {
        auto loaded = std::async(std::launch::async, [&] { return LoadSettings(file_).Platform; });
        EXPECT_EQ(loaded.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        return loaded.get();
    };
    EXPECT_EQ(load(), "linux");
    // Nor for a thread that waits for the file.
    std::string meanwhile;
    instanceWith([&] { meanwhile = load(); });
    EXPECT_EQ(meanwhile, "linux");
}

// Several threads of this process at one file.
class SettingsThreadsTest : public SettingsLockTest {
 protected:
    // Another thread tries to save and to instance the file while it is somebody's.
    void expectNothingElseOpens(const fs::path& path) {
        std::async(std::launch::async, [&] {
            VirtualClock clock;
            const SettingsFile file(path, clock.get(),
                                    [](const fs::path&, Opening) -> std::unique_ptr<LockedFile> {
                                        ADD_FAILURE() << "opened beside another thread";
                                        throw interprocess_exception("opened");
                                    });
            EXPECT_THAT(FailuresOf([&] { file.save(TSettings()); }), ElementsAre(TimedOutSaving(path)));
            EXPECT_THAT(FailuresOf([&] { file.instance(kValues); }), ElementsAre(kTimedOutInstancing));
            ++tried_;
        }).get();
    }

    int tried_ = 0;
};

TEST_F(SettingsThreadsTest, NoneOpensTheFileBesideASaveOrAnInstancing) {
    script_.onReplace = [&] { expectNothingElseOpens(file_); };
    save();
    EXPECT_EQ(tried_, 1);
    instance();
    EXPECT_EQ(tried_, 2);
}

TEST_F(SettingsThreadsTest, SpellingsOfOnePathAreOneFile) {
    script_.onReplace = [&] {
        expectNothingElseOpens(folder_ / "." / "settings.json");
        expectNothingElseOpens(folder_ / "x" / ".." / "settings.json");
        expectNothingElseOpens(fs::relative(file_));
    };
    save();
    EXPECT_EQ(tried_, 3);
}

TEST_F(SettingsThreadsTest, OtherFilesDoNotWait) {
    const auto other = folder_ / "other.json";
    script_.onReplace = [&] {
        std::async(std::launch::async, [&] {
            VirtualClock clock;
            SettingsFile(other, clock.get()).save(Named("other"));
            EXPECT_EQ(clock.pauses(), 0);
        }).get();
    };
    save();
    EXPECT_EQ(FileToStr(other), ObjectToJson(Named("other")));
}

TEST_F(SettingsThreadsTest, OneDeadlineCoversTheWaitForAThreadAndTheOneForAProcess) {
    std::promise<void> begun;
    std::promise<void> end;
    script_.onReplace = [&] {
        begun.set_value();
        end.get_future().wait();
    };
    auto first = std::async(std::launch::async, [&] { save(); });
    begun.get_future().wait();
    VirtualClock clock([&](int pause) {
        if (pause == 40) {
            end.set_value();
            first.get();
        }
    });
    FakeFile::Script busy;
    busy.onLock = [] { return false; };
    EXPECT_THAT(
        FailuresOf([&] { SettingsFile(file_, clock.get(), FakeFile::opening(busy)).save(TSettings()); }),
        ElementsAre(TimedOutSaving(file_)));
    EXPECT_EQ(clock.pauses(), 60);
    EXPECT_EQ(busy.calls.front(), "open emptied");
}

}  // namespace
}  // namespace cmn::proto
