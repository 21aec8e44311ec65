#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Questions to the running system. Each platform has its own bodies. All functions may be called from any
// thread; texts are UTF-8, and an empty text means that the question could not be answered.
namespace cmn {

// Users.

using UserId = std::uint32_t;

std::optional<UserId> GetUIDByName(const std::string& name);
// The user at the console.
std::string GetCurrentUserName();
// That user's home folder.
std::string GetInstallationUserHomePath();
// The first user, in the order of "ls", whose home folder holds the agent's start file.
std::string GetInstalledUserName();
// The folder that holds the users' home folders.
std::string GetUsersRoot();

// The machine.

std::string GetHostName();
// Twelve upper-case hexadecimal digits; zeros when there is no primary interface.
std::string GetMACAddress();
// Name, version and, in brackets, the processor architecture ("?" when unknown).
std::string GetOSName();
// Folder of the data that outlives an installation.
std::string GetPersistPath();
bool IsFullDiskAccessGranted();

// Logs.

// Where the programs of this user keep logs that cannot lie beside the program, and where the services of the
// machine do. They need not exist; "" when there is none.
std::string GetUserLogFolder();
std::string GetSystemLogFolder();
// One line in the system's own log.
void SystemLog(std::string_view message);
// One line with the rank of an error in the system's journal, where there is one; it is in a log of the
// product as well. Never waits and never fails.
void SystemJournal(std::string_view message) noexcept;

// The application bundle.

// "CFBundleShortVersionString" of the one that the program runs in.
std::optional<std::string> GetBundleShortVersion();
// The folder that holds the program: the one around its application bundle, else the one around the
// executable.
std::string GetSharedPath();

// Processes.

int GetPID();
std::string GetProcessPathForPID(unsigned int pid);
// Path of the running program; asked once, then remembered.
std::string GetCurrentExecutablePath();
// Path of the module this code runs in: the program itself.
std::string GetModuleName();

// Long enough for every program that is run.
inline constexpr std::chrono::milliseconds kExecDeadline{30'000};

// Runs a program to its end and returns what it wrote to its standard output and error streams ("" when that
// is not UTF-8). Of this process's descriptors it gets the standard ones alone. One that runs on after the
// deadline, or keeps the streams open, is killed with those that it started, with a warning in the log; so is
// one that writes more than 1 MiB. What it wrote until then is returned. A status other than 0 is logged as
// an error when `logFailures` is set; every run is logged at Info. Throws std::runtime_error, or raises the
// platform's own exception, when the program cannot be started.
std::string ExecProcess(const std::string& path, const std::vector<std::string>& arguments, bool logFailures,
                        std::chrono::milliseconds deadline = kExecDeadline);

// 0, or -1 with errno set.
int FileTruncate(int fd, unsigned long long length);
int FileTruncate(std::FILE* file, unsigned long long length);

// The thread that loaded the program.
std::thread::id GetMainThreadID();
bool IsOnMainThread();

// Local calendar time; empty when the time has none.
std::optional<std::tm> GetLocalTime(std::time_t time);

}  // namespace cmn
