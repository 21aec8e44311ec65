#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "linux_filemanagers/DesktopSession.h"
#include "useragent/AppMenu.h"

namespace useragent {

enum class SettingsTopic { fullDiskAccess, accessibility };

struct ProgramCall {
    std::string program;
    std::vector<std::string> arguments;
    bool operator==(const ProgramCall&) const = default;
};

// The first program that is there of those a desktop has for the topic; last the help page in whatever shows
// such pages. Nothing when there is no program at all.
std::optional<ProgramCall> ChooseSettingsProgram(const std::vector<std::string>& desktopNames,
                                                 SettingsTopic topic, const ProgramLookup& hasProgram,
                                                 const std::filesystem::path& helpPage);

class LinuxSettingsPanes : public SettingsPanes {
 public:
    // Starts a program without waiting for it; false when that fails.
    using Starter = std::function<bool(const ProgramCall& call)>;

    // `helpPage` is packaging/help/permissions.html or its installed copy.
    explicit LinuxSettingsPanes(std::filesystem::path helpPage,
                                DesktopSession session = CurrentDesktopSession(),
                                Starter starter = StartDetached);

    void openFullDiskAccess() override;
    void openAccessibility() override;

    static bool StartDetached(const ProgramCall& call);

 private:
    void open(SettingsTopic topic) noexcept;

    const std::filesystem::path helpPage_;
    const DesktopSession session_;
    const Starter starter_;
};

}  // namespace useragent
