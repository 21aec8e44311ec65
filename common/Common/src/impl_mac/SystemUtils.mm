#include "common/SystemUtils.h"

#import <Foundation/Foundation.h>
#include <libproc.h>
#include <mach-o/dyld.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <future>
#include <system_error>
#include <thread>

#include "common/bundle.h"
#include "common/utf8.h"
#import "common_mac/FoundationBridges.h"
#import "common_mac/standard_errors.h"
#include "exec_report.h"
#import "impl_mac/IORegistry.h"
#include "impl_posix/exec_output.h"
#include "impl_posix/user_database.h"
#include "installed_user.h"

namespace cmn {

namespace {

constexpr auto kPersistPath = "/Library/Application Support/Tessarin";
constexpr auto kSystemLogFolder = "/Library/Logs/Tessarin";
constexpr auto kUsersRoot = "/Users";
constexpr auto kAgentStartFile = "Library/LaunchAgents/com.tessarin.UserAgent.plist";
NSString* const kFullDiskAccessProbe = @"/Library/Application Support/com.apple.TCC";

// As dyld knows it: not resolved, unlike the path of the process.
std::filesystem::path ExecutablePathOfDyld() {
    std::array<char, 1024> path{};
    auto size = static_cast<std::uint32_t>(path.size());
    return _NSGetExecutablePath(path.data(), &size) == 0 ? std::string(path.data()) : std::string();
}

// With those that it started, where it leads a group of its own.
void EndProgram(pid_t program) {
    if (killpg(program, SIGKILL) != 0)
        kill(program, SIGKILL);
}

}  // namespace

std::string GetHostName() {
    @autoreleasepool {
        return ToStdString([NSHost currentHost].localizedName);
    }
}

std::string GetMACAddress() {
    @autoreleasepool {
        return PrimaryInterfaceMACAddress();
    }
}

std::string GetInstalledUserName() {
    return InstalledUserBelow(kUsersRoot, kAgentStartFile);
}

std::string GetCurrentUserName() {
    @autoreleasepool {
        return ConsoleUserName();
    }
}

std::string GetOSName() {
    @autoreleasepool {
        const NSOperatingSystemVersion version = [NSProcessInfo processInfo].operatingSystemVersion;
        NSString* const number =
            [NSString stringWithFormat:@"%ld.%ld.%ld", (long)version.majorVersion, (long)version.minorVersion,
                                       (long)version.patchVersion];
        utsname system{};
        const bool known = uname(&system) == 0;
        NSString* const machine = known ? [NSString stringWithUTF8String:system.machine] : @"?";
        return [[NSString stringWithFormat:@"macOS %@ (%@)", number, machine] stdString];
    }
}

std::string GetProcessPathForPID(unsigned int pid) {
    std::array<char, 4096> path{};
    const int length =
        proc_pidpath(static_cast<int>(pid), path.data(), static_cast<std::uint32_t>(path.size()));
    return length < 1 ? std::string() : std::string(path.data(), static_cast<std::size_t>(length));
}

std::optional<std::string> GetBundleShortVersion() {
    @autoreleasepool {
        id const version = [[NSBundle mainBundle] objectForInfoDictionaryKey:@"CFBundleShortVersionString"];
        return [version isKindOfClass:[NSString class]] ? std::optional([version stdString]) : std::nullopt;
    }
}

std::string GetInstallationUserHomePath() {
    @autoreleasepool {
        NSString* const user = [NSString stringWithStdString:GetCurrentUserName()];
        return user.length > 0 ? ToStdString(NSHomeDirectoryForUser(user)) : std::string();
    }
}

std::string GetSharedPath() {
    @autoreleasepool {
        return SharedPathOf(ToStdString([NSBundle mainBundle].bundlePath), ExecutablePathOfDyld());
    }
}

std::string GetPersistPath() {
    return kPersistPath;
}

std::string GetUserLogFolder() {
    const auto user = FindUser(geteuid());
    return user && !user->home.empty() ? user->home + "/Library/Logs/Tessarin" : std::string();
}

std::string GetSystemLogFolder() {
    // It is the installation's.
    std::error_code error;
    return std::filesystem::is_directory(kSystemLogFolder, error) ? kSystemLogFolder : "";
}

std::string GetUsersRoot() {
    return kUsersRoot;
}

bool IsFullDiskAccessGranted() {
    @autoreleasepool {
        NSError* error = nil;
        (void)[[NSFileManager defaultManager] contentsOfDirectoryAtPath:kFullDiskAccessProbe error:&error];
        return error == nil;
    }
}

std::string ExecProcess(const std::string& path, const std::vector<std::string>& arguments, bool logFailures,
                        std::chrono::milliseconds deadline) {
    const auto latest = std::chrono::steady_clock::now() + deadline;
    @autoreleasepool {
        NSTask* const task = [[NSTask alloc] init];
        NSPipe* const pipe = [NSPipe pipe];
        task.launchPath = [NSString stringWithStdString:path];
        task.arguments = [NSArray arrayWithStringVector:arguments];
        task.standardOutput = pipe;
        task.standardError = pipe;
        WithStandardErrors(("[ExecProcess] Can't launch (" + path + ")").c_str(), [task] { [task launch]; });
        // Reading comes first: a program that fills the pipe does not end before somebody empties it.
        std::string output;
        const char* whyEnded = ReadExecOutput(pipe.fileHandleForReading.fileDescriptor, latest, output);
        const pid_t program = task.processIdentifier;
        if (whyEnded != nullptr)
            EndProgram(program);
        // The task says when the program has ended, not when it has not.
        std::promise<void> ended;
        std::future<void> end = ended.get_future();
        std::thread watchdog([&] {
            if (whyEnded == nullptr && end.wait_until(latest) == std::future_status::timeout) {
                whyEnded = kExecTookTooLong;
                EndProgram(program);
            }
        });
        [task waitUntilExit];
        ended.set_value();
        watchdog.join();
        [pipe.fileHandleForReading closeFile];
        if (whyEnded != nullptr)
            ReportExecEnded(path, arguments, whyEnded);
        if (!IsValidUtf8(output))
            output.clear();
        ReportExecProcess(path, arguments, task.terminationStatus, output, logFailures);
        return output;
    }
}

void SystemLog(std::string_view message) {
    @autoreleasepool {
        NSString* const text = [[NSString alloc] initWithBytes:message.data()
                                                        length:message.size()
                                                      encoding:NSUTF8StringEncoding];
        NSLog(@"%@", text != nil ? text : @"(a message that is not UTF-8)");
    }
}

void SystemJournal(std::string_view /*message*/) noexcept {
    // This system has no journal beside its log, which `SystemLog` writes.
}

}  // namespace cmn
