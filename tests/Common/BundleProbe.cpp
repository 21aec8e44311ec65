#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/LogFile.h"
#include "common/SystemUtils.h"
#include "common/proto_settings.h"

namespace {

void Print(const std::string& text) {
    std::printf("%s\n", text.c_str());
}

std::string PathOfProcess() {
    return cmn::GetProcessPathForPID(static_cast<unsigned int>(cmn::GetPID()));
}

// Where it believes to be.
void PrintPlaces() {
    Print(cmn::GetCurrentExecutablePath());
    Print(cmn::GetSharedPath());
    Print(cmn::GetBundleShortVersion().value_or("no version"));
    Print(cmn::proto::GetCurrentProductNativeName());
    Print(cmn::GetLogPath().string());
}

// What it says of its own file, and what of its process, before and after the file has moved and when it is
// gone.
void PrintPathsOfAMovedFile() {
    const std::filesystem::path file = cmn::GetCurrentExecutablePath();
    Print(file.string());
    const auto moved = file.string() + ".moved";
    std::filesystem::rename(file, moved);
    Print(cmn::GetCurrentExecutablePath());
    Print(PathOfProcess());
    std::filesystem::remove(moved);
    Print(cmn::GetCurrentExecutablePath());
    Print(PathOfProcess());
}

// What it says of its own file while processes cannot be asked about, and afterwards. Nothing when this user
// may not hide them.
void PrintPathsOfALateAnswer() {
    if (unshare(CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER)) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", "/proc", "tmpfs", 0, nullptr) != 0)
        return;
    Print(cmn::GetCurrentExecutablePath());
    umount("/proc");
    Print(cmn::GetCurrentExecutablePath());
}

}  // namespace

// Prints answers, one a line.
int main(int argc, char** argv) {
    const std::string_view question = argc > 1 ? argv[1] : "places";
    if (question == "places")
        PrintPlaces();
    else if (question == "moved")
        PrintPathsOfAMovedFile();
    else if (question == "late")
        PrintPathsOfALateAnswer();
}
