#include "settings_file.h"

#include <boost/interprocess/exceptions.hpp>
#include <exception>
#include <mutex>
#include <system_error>

#include "common/exceptions.h"
#include "common/fs.h"
#include "common/log.h"
#include "common/make_error.h"
#include "common/settings_json.h"
#include "read_all.h"

namespace cmn::proto {

namespace {

using boost::interprocess::interprocess_exception;

// The lock of a file is the whole process's and is lost when any of the process's descriptors of the file
// closes. So one thread at a time opens the file to change it.
std::timed_mutex g_fileMutex;

void LogError(int line, std::string_view function, const std::string& message) {
    LogFull(LogLevel::Error, __FILE__, line, function, message);
}

}  // namespace

TSettings LoadSettingsWith(const std::filesystem::path& path, const ReadSettings& read) {
    // Takes no lock, and no mutex: a load does not wait for a save. Closing the file gives up the lock of a
    // save that another thread has in progress, so another process may then write beside it; this gap is
    // known.
    try {
        try {
            std::ifstream in(path, std::ios::binary);
            return read(in);
        } catch (const std::runtime_error&) {
            std::throw_with_nested(make_error("Couldn't open ", path.string()));
        }
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "LoadSettings", fmt::format("Can't load settings: {}", e.what()));
        return {};
    }
}

void SaveSettingsWith(const std::filesystem::path& path, const TSettings& settings,
                      const OpenSettingsLock& openLock, const SettingsClock& now) {
    const auto fail = [&] {
        throw_with_trace(make_error("can't get lock for save settings to file: ", path.string()));
    };
    const auto deadline = now() + kSettingsLockTimeout;
    const std::unique_lock one(g_fileMutex, deadline);
    if (!one)
        fail();
    try {
        // The file is emptied here, before the lock is taken; kept so.
        std::ofstream out(path, std::ios::binary);
        auto lock = openLock(path);
        if (!lock->lock(deadline))
            fail();
        // Whoever had the lock meanwhile may have left a longer text than this one.
        std::error_code ignored;
        std::filesystem::resize_file(path, 0, ignored);
        // What is buffered must be in the file before another process gets the lock, and the stream must stay
        // open until then: closing any descriptor of the file gives the lock up.
        out << ObjectToJson(settings) << std::flush;
        lock.reset();
        out.close();
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "SaveSettings",
                 fmt::format("Can't save settings: {}, {}", e.what(), path.string()));
    }
}

void InstanceSettingsWith(const std::filesystem::path& path, const std::map<std::string, std::string>& values,
                          const OpenSettingsLock& openLock, const SettingsClock& now) {
    const auto fail = [] { throw_with_trace(std::runtime_error("can't get lock")); };
    const auto deadline = now() + kSettingsLockTimeout;
    const std::unique_lock one(g_fileMutex, deadline);
    if (!one)
        fail();
    try {
        // Both streams outlive the lock: closing any descriptor of the file gives it up.
        std::ifstream in(path, std::ios::binary);
        std::ofstream out;
        const auto lock = openLock(path);
        if (!lock->lock(deadline))
            fail();
        std::string text;
        if (!ReadAll(in, text))
            throw_with_trace(make_error("[InstanceSettings] Can't read (", path.string(), ")"));
        ReplaceTemplates(text, values);
        out.open(path, std::ios::binary);
        out << text << std::flush;
        if (!out)
            throw_with_trace(make_error("[InstanceSettings] Can't write (", path.string(), ")"));
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "InstanceSettings", fmt::format("Can't lock settings file: {}", e.what()));
    }
}

}  // namespace cmn::proto
