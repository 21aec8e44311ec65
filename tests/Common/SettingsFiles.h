#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "common/fs.h"
#include "common/proto_settings.h"
#include "settings_file.h"
#include "support/LogCapture.h"

// What the tests of the settings' file have in common.
namespace cmn::proto {

// A clock of which a second passes with every pause. `onPause` is called with their number, from 1.
class VirtualClock {
 public:
    explicit VirtualClock(std::function<void(int)> onPause = [](int) {}) : onPause_(std::move(onPause)) {}

    // The clock object must outlive what this returns.
    SettingsClock get() {
        return {[this] { return time_; },
                [this] {
                    advance(std::chrono::seconds(1));
                    onPause_(++pauses_);
                }};
    }
    void advance(std::chrono::seconds by) { time_ += by; }
    int pauses() const { return pauses_; }

 private:
    std::function<void(int)> onPause_;
    SettingsTime time_{std::chrono::seconds(1'000'000'000)};
    int pauses_ = 0;
};

class SettingsFileTest : public testing::Test {
 protected:
    std::string content() const { return FileToStr(file_); }

    const fake::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "settings.json";
};

inline TSettings Named(const std::string& platform) {
    TSettings settings;
    settings.Platform = platform;
    return settings;
}

inline const std::map<std::string, std::string> kValues{{"${INST_KEY}", "the key"},
                                                        {"${DEV_UUID}", "the uuid"}};

constexpr auto kTimedOutInstancing = "can't get lock";
inline std::string TimedOutSaving(const std::filesystem::path& file) {
    return "can't get lock for save settings to file: " + file.string();
}

}  // namespace cmn::proto
