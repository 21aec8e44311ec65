#include "permissions/LinuxSettingsPanes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>
#include <utility>

#include "common/log.h"

namespace useragent {
namespace {

struct Pane {
    const char* desktop;  // in small letters
    ProgramCall call;
};

// For accessibility, in the order in which they are tried.
const std::vector<Pane>& Panes() {
    static const std::vector<Pane> panes{
        {"gnome", {"gnome-control-center", {"universal-access"}}},
        {"unity", {"unity-control-center", {"universal-access"}}},
        {"budgie", {"budgie-control-center", {"universal-access"}}},
        {"kde", {"systemsettings", {"kcm_access"}}},
        {"kde", {"systemsettings5", {"kcm_access"}}},
        {"xfce", {"xfce4-accessibility-settings", {}}},
        {"xfce", {"xfce4-settings-manager", {}}},
        {"x-cinnamon", {"cinnamon-settings", {"universal-access"}}},
        {"mate", {"mate-at-properties", {}}},
        {"mate", {"mate-control-center", {}}},
    };
    return panes;
}

// As a URL: openers take a path with a section for a file of that name.
std::string SectionOf(const std::filesystem::path& helpPage, SettingsTopic topic) {
    QUrl section = QUrl::fromLocalFile(QString::fromStdString(helpPage.string()));
    section.setFragment(topic == SettingsTopic::fullDiskAccess ? "full-disk-access" : "accessibility");
    return section.toEncoded().toStdString();
}

std::optional<ProgramCall> AccessibilityProgram(const std::vector<std::string>& desktopNames,
                                                const ProgramLookup& hasProgram) {
    for (const std::string& name : desktopNames) {
        const std::string desktop = boost::algorithm::to_lower_copy(name);
        const auto found = std::find_if(Panes().begin(), Panes().end(), [&](const Pane& pane) {
            return pane.desktop == desktop && hasProgram(pane.call.program);
        });
        if (found != Panes().end()) {
            return found->call;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<ProgramCall> ChooseSettingsProgram(const std::vector<std::string>& desktopNames,
                                                 SettingsTopic topic, const ProgramLookup& hasProgram,
                                                 const std::filesystem::path& helpPage) {
    if (topic == SettingsTopic::accessibility) {
        if (auto program = AccessibilityProgram(desktopNames, hasProgram)) {
            return program;
        }
    }
    const ProgramCall help{"xdg-open", {SectionOf(helpPage, topic)}};
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
        const std::optional<ProgramCall> call =
            ChooseSettingsProgram(SplitList(session_.currentDesktop), topic, session_.hasProgram, helpPage_);
        if (call) {
            starter_(*call, [call = *call](const std::string& failure) {
                TLOG_WARN("{} {} -- failed: {}", call.program, fmt::join(call.arguments, " "), failure);
            });
        } else {
            TLOG_WARN("There is no program for the desktop's settings, and none that shows {}",
                      helpPage_.string());
        }
    } catch (const std::exception& error) {
        TLOG_WARN("The program for the desktop's settings could not be started: {}", error.what());
    }
}

void LinuxSettingsPanes::Start(const ProgramCall& call, const FailureHandler& failed) {
    QStringList arguments;
    for (const std::string& argument : call.arguments) {
        arguments.append(QString::fromStdString(argument));
    }
    // Never destroyed before its program has ended, not even with the agent: that would end the program.
    auto* const program = new QProcess;
    program->setStandardInputFile(QProcess::nullDevice());
    program->setProcessChannelMode(QProcess::ForwardedChannels);
    program->setChildProcessModifier([] { setsid(); });
    QObject::connect(program, &QProcess::finished, program,
                     [program, failed](int exitCode, QProcess::ExitStatus status) {
                         program->deleteLater();
                         if (status == QProcess::NormalExit && exitCode != 0) {
                             failed(fmt::format("it ended with code {}", exitCode));
                         }
                     });
    QObject::connect(program, &QProcess::errorOccurred, program,
                     [program, failed](QProcess::ProcessError error) {
                         failed(program->errorString().toStdString());
                         if (error == QProcess::FailedToStart) {
                             program->deleteLater();
                         }
                     });
    program->start(QString::fromStdString(call.program), arguments);
}

}  // namespace useragent
