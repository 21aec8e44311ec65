#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "TessarinUserAgent/linux/AtspiDesktop.h"
#include "doctor/Checks.h"
#include "doctor/Machine.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"
#include "support/RawPeer.h"

namespace ctl {

// For checks of what never answers.
inline constexpr std::chrono::milliseconds kShort{400};

// Makes the folders above as well.
void Write(const std::filesystem::path& file, const std::string& text);

// A machine with a session in which nothing is wrong, until a test changes something.
class World : public testing::Test {
 protected:
    World();

    // Whoever answers for one of the services, with its version.
    static std::unique_ptr<fake::RawPeer> service(const fake::PrivateBus& bus, const std::string& name);
    // One that takes calls and says nothing.
    static std::unique_ptr<fake::RawPeer> silent(const fake::PrivateBus& bus, const std::string& name);

    // As of now. Calls it within a generous deadline, or that one.
    Machine machine() const;
    Finding run(Finding (*check)(const Machine&, cmn::bus::Deadline),
                std::chrono::milliseconds deadline = std::chrono::seconds(20)) const;

    void giveProgram(const std::string& name) { programs.insert(name); }

    fake::LogCapture log;  // what the libraries write
    const fake::TemporaryFolder folder;
    const std::filesystem::path root = folder / "root";
    const std::filesystem::path bundle = folder / "opt/TessarinUserAgent.app";
    const std::filesystem::path program = bundle / "Contents/Linux/TessarinUserAgent";
    const std::filesystem::path settings = folder / "opt/settings.json";
    const std::filesystem::path home = folder / "home";
    const std::filesystem::path data = folder / "share";
    std::filesystem::path userLogs = home / ".local/state/tessarin";
    const std::filesystem::path policy = root / "usr/share/dbus-1/system.d/com.tessarin.conf";
    const std::filesystem::path actions = root / "usr/share/polkit-1/actions/com.tessarin.policy";
    const std::filesystem::path handler = data / "applications/com.tessarin.TessarinUserAgent.desktop";

    fake::PrivateBus systemBus;
    fake::AtspiDesktop desktop;
    std::unique_ptr<fake::RawPeer> userAgentService = service(systemBus, "com.tessarin.UserAgent");
    std::unique_ptr<fake::RawPeer> finderService = service(systemBus, "com.tessarin.FinderExtension");
    std::unique_ptr<fake::RawPeer> polkit = service(systemBus, "org.freedesktop.PolicyKit1");
    std::unique_ptr<fake::RawPeer> agent = service(desktop.sessionBus, "com.tessarin.TessarinUserAgent");
    std::atomic<bool> hasHost{true};
    std::unique_ptr<fake::RawPeer> panel;

    std::map<std::string, std::string> variables;
    std::set<std::string> programs{"xdg-open", "apt-get", "thunar"};
    std::string systemAddress = systemBus.address();
    std::string sessionAddress = desktop.sessionBus.address();
    uid_t serviceUser;
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    std::optional<std::uintmax_t> space = std::uintmax_t{1} << 40;
    std::optional<bool> windowTray;
    Browsers ofAgent;
    Browsers seen;
    // What programs were run, and what becomes of it.
    mutable std::vector<std::vector<std::string>> commands;
    std::function<bool(const std::vector<std::string>&)> onRun = [](const auto&) { return true; };
};

MATCHER(IsGood, "") {
    *result_listener << NameOf(arg.verdict) << ": " << arg.text;
    return arg.verdict == Verdict::good && !arg.text.empty() && arg.remedy.empty() && !arg.mend;
}
// Wrong or a warning, with these words and a remedy with those.
MATCHER_P3(Is, verdict, words, remedy, "") {
    *result_listener << NameOf(arg.verdict) << ": " << arg.text << " -- " << arg.remedy;
    return arg.verdict == verdict && arg.text.find(words) != std::string::npos && !arg.remedy.empty() &&
           arg.remedy.find(remedy) != std::string::npos;
}

}  // namespace ctl
