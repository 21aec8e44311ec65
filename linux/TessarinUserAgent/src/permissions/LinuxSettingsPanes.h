#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "permissions/DesktopSession.h"
#include "useragent/AppMenu.h"

namespace useragent {

enum class SettingsTopic { fullDiskAccess, accessibility };

struct ProgramCall {
    std::string program;
    std::vector<std::string> arguments;
    bool operator==(const ProgramCall&) const = default;
};

// Accessibility: the first program that is there of those a desktop has for it. Full disk access, which no
// desktop has a switch for, and where there is none: the topic's section of the help page in whatever shows
// such pages. Nothing when there is no program at all.
std::optional<ProgramCall> ChooseSettingsProgram(const std::vector<std::string>& desktopNames,
                                                 SettingsTopic topic, const ProgramLookup& hasProgram,
                                                 const std::filesystem::path& helpPage);

class LinuxSettingsPanes : public SettingsPanes {
 public:
    using FailureHandler = std::function<void(const std::string& failure)>;
    // Starts a program without waiting for it. The handler is called when that fails, at once or later, and
    // when the program ends with an error.
    using Starter = std::function<void(const ProgramCall& call, const FailureHandler& failed)>;

    // `helpPage` is packaging/help/permissions.html or its installed copy.
    explicit LinuxSettingsPanes(std::filesystem::path helpPage,
                                DesktopSession session = CurrentDesktopSession(), Starter starter = Start);

    void openFullDiskAccess() override;
    void openAccessibility() override;

    // The program stays when the agent ends. Needs the event loop for the handler.
    static void Start(const ProgramCall& call, const FailureHandler& failed);

 private:
    void open(SettingsTopic topic) noexcept;

    const std::filesystem::path helpPage_;
    const DesktopSession session_;
    const Starter starter_;
};

}  // namespace useragent
