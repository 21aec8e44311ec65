#include "linux_filemanagers/LinuxSettingsPanes.h"

#include <QProcess>
#include <QString>
#include <QStringList>
#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <utility>

#include "common/log.h"

namespace useragent {
namespace {

struct Pane {
    const char* desktop;  // in small letters
    SettingsTopic topic;
    ProgramCall call;
};

// In the order in which they are tried.
const std::vector<Pane>& Panes() {
    using enum SettingsTopic;
    static const std::vector<Pane> panes{
        {"gnome", fullDiskAccess, {"gnome-control-center", {"privacy"}}},
        {"gnome", accessibility, {"gnome-control-center", {"universal-access"}}},
        {"unity", fullDiskAccess, {"unity-control-center", {"privacy"}}},
        {"unity", accessibility, {"unity-control-center", {"universal-access"}}},
        {"budgie", fullDiskAccess, {"budgie-control-center", {"privacy"}}},
        {"budgie", accessibility, {"budgie-control-center", {"universal-access"}}},
        {"kde", fullDiskAccess, {"systemsettings", {"kcm_users"}}},
        {"kde", fullDiskAccess, {"systemsettings5", {"kcm_users"}}},
        {"kde", accessibility, {"systemsettings", {"kcm_access"}}},
        {"kde", accessibility, {"systemsettings5", {"kcm_access"}}},
        {"xfce", fullDiskAccess, {"xfce4-settings-manager", {}}},
        {"xfce", accessibility, {"xfce4-accessibility-settings", {}}},
        {"xfce", accessibility, {"xfce4-settings-manager", {}}},
        {"x-cinnamon", fullDiskAccess, {"cinnamon-settings", {"privacy"}}},
        {"x-cinnamon", accessibility, {"cinnamon-settings", {"universal-access"}}},
        {"mate", fullDiskAccess, {"mate-control-center", {}}},
        {"mate", accessibility, {"mate-at-properties", {}}},
        {"mate", accessibility, {"mate-control-center", {}}},
    };
    return panes;
}

}  // namespace

std::optional<ProgramCall> ChooseSettingsProgram(const std::vector<std::string>& desktopNames,
                                                 SettingsTopic topic, const ProgramLookup& hasProgram,
                                                 const std::filesystem::path& helpPage) {
    for (const std::string& name : desktopNames) {
        const std::string desktop = boost::algorithm::to_lower_copy(name);
        const auto found = std::find_if(Panes().begin(), Panes().end(), [&](const Pane& pane) {
            return pane.desktop == desktop && pane.topic == topic && hasProgram(pane.call.program);
        });
        if (found != Panes().end()) {
            return found->call;
        }
    }
    const ProgramCall help{"xdg-open", {helpPage.string()}};
    return hasProgram(help.program) ? std::optional(help) : std::nullopt;
}

LinuxSettingsPanes::LinuxSettingsPanes(std::filesystem::path helpPage, DesktopSession session,
                                       Starter starter)
    : helpPage_(std::move(helpPage)), session_(std::move(session)), starter_(std::move(starter)) {}

void LinuxSettingsPanes::openFullDiskAccess() {
    open(SettingsTopic::fullDiskAccess);
}

void LinuxSettingsPanes::openAccessibility() {
    open(SettingsTopic::accessibility);
}

void LinuxSettingsPanes::open(SettingsTopic topic) noexcept {
    try {
        const std::optional<ProgramCall> call = ChooseSettingsProgram(DesktopNames(session_.currentDesktop),
                                                                      topic, session_.hasProgram, helpPage_);
        if (!call) {
            TLOG_WARN("There is no program for the desktop's settings, and none that shows {}",
                      helpPage_.string());
        } else if (!starter_(*call)) {
            TLOG_WARN("The program for the desktop's settings could not be started: {}", call->program);
        }
    } catch (const std::exception& error) {
        TLOG_WARN("The program for the desktop's settings could not be started: {}", error.what());
    }
}

bool LinuxSettingsPanes::StartDetached(const ProgramCall& call) {
    QStringList arguments;
    for (const std::string& argument : call.arguments) {
        arguments.append(QString::fromStdString(argument));
    }
    return QProcess::startDetached(QString::fromStdString(call.program), arguments);
}

}  // namespace useragent
