#include "common/traverse.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <string_view>
#include <system_error>

#include "FolderWalk.h"
#include "common/fs.h"
#include "common/log.h"
#include "common/utf8.h"

namespace cmn {

namespace {

namespace fs = std::filesystem;

constexpr auto kFunction = "TraverseDirectoryNoThrow";

template <class... Args>
void Log(LogLevel level, int line, fmt::format_string<Args...> format, Args&&... args) {
    if (LogEnabled(level))
        LogFull(level, __FILE__, line, kFunction,
                EscapeControls(fmt::format(format, std::forward<Args>(args)...)));
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EndsWithoutCase(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && std::equal(end.rbegin(), end.rend(), text.rbegin(),
                                                   [](char a, char b) { return Lower(a) == Lower(b); });
}

bool HasExtension(std::string_view path, const std::set<std::string>& extensions) {
    return extensions.empty() ||
           std::any_of(extensions.begin(), extensions.end(),
                       [&](const auto& extension) { return EndsWithoutCase(path, extension); });
}

bool IsRegularFile(const FolderWalk& walk) {
    std::error_code error;
    const bool regular = walk.isRegularFile(error);
    if (error)
        Log(LogLevel::Error, __LINE__, "Access to [{}] failed with - {}", walk.path(), error.message());
    return regular;
}

void Call(const std::function<void(const fs::path&)>& callback, const fs::path& path) {
    try {
        callback(path);
    } catch (const std::exception& e) {
        Log(LogLevel::Error, __LINE__, "Accessing to [{}] delegate throws - {}", path.string(), e.what());
    } catch (...) {
        Log(LogLevel::Error, __LINE__, "Accessing to [{}] delegate throws - unknown exception",
            path.string());
    }
}

void Walk(const fs::path& root, const std::function<void(const fs::path&)>& callback,
          const std::atomic<bool>& keepRunning, const std::vector<fs::path>& skipFolders,
          const std::set<std::string>& extensions) {
    std::error_code error;
    if (!fs::exists(root, error) || error || !keepRunning)
        return;
    FolderWalk walk(root.native());
    while (walk.next(error)) {
        if (!keepRunning) {
            Log(LogLevel::Trace, __LINE__, "Filesystem traverse aborted {} -- {}", root.string(),
                walk.path());
            return;
        }
        if (!skipFolders.empty() && IsFileInDirs(walk.file(), skipFolders)) {
            walk.stayOut();
            Log(LogLevel::Trace, __LINE__, "Folder [{}] is skipped", walk.path());
        } else if (HasExtension(walk.path(), extensions) && IsRegularFile(walk)) {
            Call(callback, walk.file());
        }
    }
    if (error)
        Log(LogLevel::Error, __LINE__, "Access to [{}] failed with: {}", walk.path(), error.message());
}

}  // namespace

void TraverseDirectoryNoThrow(const fs::path& root, const std::function<void(const fs::path&)>& callback,
                              const std::atomic<bool>& keepRunning, const std::vector<fs::path>& skipFolders,
                              const std::set<std::string>& extensions) noexcept {
    try {
        Walk(root, callback, keepRunning, skipFolders, extensions);
    } catch (...) {
        // Out of memory: there is nothing left to log it with.
    }
}

void TraverseDirectoryNoThrow(const fs::path& root,
                              const std::function<void(const fs::path&)>& callback) noexcept {
    const std::atomic<bool> keepRunning = true;
    TraverseDirectoryNoThrow(root, callback, keepRunning, {}, {});
}

}  // namespace cmn
