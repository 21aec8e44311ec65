#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "common/causes.h"
#include "common/fs.h"
#include "common/proto_settings.h"
#include "doctor/Checks.h"
#include "doctor/Installation.h"
#include "doctor/Machine.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
namespace fs = std::filesystem;

constexpr std::uintmax_t kLeastSpace = 1U << 20;   // bytes
constexpr std::uintmax_t kSpaceOfLog = 30U << 20;  // two files of 15 MiB
constexpr std::chrono::minutes kClockTolerance{5};

bool IsAccessible(const fs::path& path, int mode) {
    return ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0;
}

// The deepest folder on the way to it that is there.
fs::path ExistingFolder(fs::path folder) {
    std::error_code error;
    while (!fs::exists(folder, error) && folder != folder.parent_path()) {
        folder = folder.parent_path();
    }
    return folder;
}

// The first files of the log in its places, best first.
std::vector<fs::path> LogFiles(const Machine& machine) {
    auto files = LogStems(AgentOf(machine), machine.userLogs);
    for (fs::path& file : files) {
        file += "_0.log";
    }
    return files;
}

// As the agent finds out, without making anything. It makes the user's folder when that is missing.
bool CanBeWritten(const Machine& machine, const fs::path& file) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file, error);
    if (fs::exists(status)) {
        return fs::is_regular_file(status) && IsAccessible(file, W_OK);
    }
    const fs::path wanted = file.parent_path();
    const fs::path folder = wanted == machine.userLogs ? ExistingFolder(wanted) : wanted;
    return fs::is_directory(folder, error) && IsAccessible(folder, W_OK | X_OK);
}

std::optional<fs::path> LogFileOf(const Machine& machine) {
    const auto files = LogFiles(machine);
    const auto found = std::find_if(files.begin(), files.end(),
                                    [&](const fs::path& file) { return CanBeWritten(machine, file); });
    return found == files.end() ? std::nullopt : std::optional(*found);
}

// " at byte 17 (line 3)", as far as the reader's complaint says where.
std::string WhereItBreaks(const std::string& complaint, const fs::path& file) {
    constexpr std::string_view kOffset = " offs: ";
    const auto at = complaint.rfind(kOffset);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t offset = std::stoul(complaint.substr(at + kOffset.size()));
    const std::string text = cmn::FileToStr(file);
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
    return fmt::format(" at byte {} (line {})", offset, std::count(text.begin(), end, '\n') + 1);
}

}  // namespace

Finding CheckLog(const Machine& machine, bus::Deadline /*deadline*/) {
    if (const auto file = LogFileOf(machine)) {
        return Good(fmt::format("It is {}", Quoted(*file)));
    }
    const fs::path wanted = LogFiles(machine).back().parent_path();
    return {Verdict::wrong,
            "No place for it can be written, so its lines go to the standard error stream of the session",
            fmt::format(
                "mkdir -p {0} && chmod u+rwx {0}; a log file there has to be an ordinary one of this user's",
                Quoted(wanted))};
}

Finding CheckSettings(const Machine& machine, bus::Deadline /*deadline*/) {
    const fs::path file = SettingsOf(machine);
    cmn::proto::TSettings settings;
    try {
        settings = cmn::proto::LoadSettings(file);
    } catch (const std::exception& error) {
        const auto causes = cmn::CausesOf(error);
        const std::string cause = causes.empty() ? error.what() : causes.back();
        std::error_code ignored;
        return {Verdict::wrong,
                fs::exists(file, ignored)
                    ? fmt::format("{} breaks{}: {}", Quoted(file), WhereItBreaks(cause, file), cause)
                    : fmt::format("{} is missing", Quoted(file)),
                fmt::format("restore {} from a backup, or: {}", Quoted(file), ReinstallCommand(machine))};
    }
    if (settings.DeviceUUID.starts_with("${")) {
        return {Verdict::wrong, fmt::format("{} is a template that nobody has filled in", Quoted(file)),
                ReinstallCommand(machine)};
    }
    try {
        cmn::proto::GetProduct(settings, "Agent");
    } catch (const std::exception&) {
        return {Verdict::warning,
                fmt::format("{} has no product \"Agent\", so the menu shows no version", Quoted(file)),
                fmt::format("add it to \"Products\", as in {}", Quoted("/usr/share/tessarin/settings.json"))};
    }
    return Good(fmt::format("{} is", Quoted(file)));
}

Finding CheckClock(const Machine& machine, bus::Deadline /*deadline*/) {
    std::optional<fs::file_time_type> newest;
    for (const fs::path& file : {AgentOf(machine), SettingsOf(machine)}) {
        std::error_code error;
        const auto time = fs::last_write_time(file, error);
        newest = error ? newest : std::max(newest.value_or(time), time);
    }
    if (!newest) {
        return NotApplicable("The product has no files to compare it with");
    }
    const auto known = std::chrono::file_clock::to_sys(*newest);
    if (machine.now() + kClockTolerance < known) {
        return {Verdict::wrong, "It is before the time at which the product was installed",
                "sudo timedatectl set-ntp true"};
    }
    return Good("It is later than the product's files");
}

Finding CheckDisk(const Machine& machine, bus::Deadline /*deadline*/) {
    const auto file = LogFileOf(machine);
    if (!file) {
        return NotApplicable("The log has no place");
    }
    const fs::path folder = file->parent_path();
    const auto space = machine.freeSpace(ExistingFolder(folder));
    if (!space) {
        return {Verdict::warning, fmt::format("It cannot be told for {}", Quoted(folder)), "df -h"};
    }
    const std::string text = fmt::format("{} MiB are left for {}", *space >> 20U, Quoted(folder));
    if (*space >= kSpaceOfLog) {
        return Good(text);
    }
    return {*space < kLeastSpace ? Verdict::wrong : Verdict::warning, text,
            fmt::format("make room in {}", Quoted(ExistingFolder(folder)))};
}

}  // namespace ctl
