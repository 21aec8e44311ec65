#include <unistd.h>

#include <mutex>

#include "common/SystemUtils.h"

namespace cmn {

namespace {

// Recorded while the program is loaded, that is, on its main thread.
const std::thread::id g_mainThreadId = std::this_thread::get_id();

}  // namespace

int GetPID() {
    return getpid();
}

std::string GetCurrentExecutablePath() {
    static std::mutex mutex;
    static std::string path;
    const std::lock_guard lock(mutex);
    if (path.empty())
        path = GetProcessPathForPID(static_cast<unsigned int>(getpid()));
    return path;
}

std::string GetModuleName() {
    return GetCurrentExecutablePath();
}

int FileTruncate(int fd, unsigned long long length) {
    return ftruncate(fd, static_cast<off_t>(length));
}

int FileTruncate(std::FILE* file, unsigned long long length) {
    return FileTruncate(fileno(file), length);
}

std::thread::id GetMainThreadID() {
    return g_mainThreadId;
}

bool IsOnMainThread() {
    return std::this_thread::get_id() == g_mainThreadId;
}

std::optional<std::tm> GetLocalTime(std::time_t time) {
    std::tm local{};
    if (localtime_r(&time, &local) == nullptr)
        return std::nullopt;
    return local;
}

}  // namespace cmn
