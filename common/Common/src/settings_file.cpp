#include "settings_file.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/interprocess/exceptions.hpp>
#include <exception>
#include <locale>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "common/exceptions.h"
#include "common/fs.h"
#include "common/log.h"
#include "common/make_error.h"
#include "common/settings_json.h"

namespace cmn::proto {

namespace {

using boost::interprocess::interprocess_exception;

void LogError(int line, std::string_view function, const std::string& message) {
    LogFull(LogLevel::Error, __FILE__, line, function, message);
}

// The mutex of the file with this path, the same for all who hold it at a time.
std::shared_ptr<std::mutex> MutexOf(const std::filesystem::path& path) {
    static std::mutex guard;
    static std::map<std::filesystem::path, std::weak_ptr<std::mutex>> mutexes;
    std::error_code error;
    const auto name = std::filesystem::absolute(path, error).lexically_normal();
    const std::lock_guard lock(guard);
    std::erase_if(mutexes, [](const auto& one) { return one.second.expired(); });
    auto& known = mutexes[name];
    auto mutex = known.lock();
    if (!mutex)
        known = mutex = std::make_shared<std::mutex>();
    return mutex;
}

}  // namespace

SettingsClock SystemSettingsClock() {
    return {[] { return std::chrono::system_clock::now(); },
            [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }};
}

TSettings LoadSettingsWith(const std::filesystem::path& path, const ReadSettings& read) {
    // Takes no lock and no mutex: a load does not wait for a save.
    try {
        try {
            return read(path);
        } catch (const std::runtime_error&) {
            std::throw_with_nested(make_error("Couldn't open ", path.string()));
        }
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "LoadSettings", fmt::format("Can't load settings: {}", e.what()));
        return {};
    }
}

// A file whose lock is had, until destroyed: closed first, then left to this process's other threads.
struct SettingsFile::Held {
    std::shared_ptr<std::mutex> mutex;
    std::unique_lock<std::mutex> one;
    std::unique_ptr<LockedFile> file;
};

SettingsFile::SettingsFile(std::filesystem::path path, SettingsClock clock, Open open)
    : path_(std::move(path)), clock_(std::move(clock)), open_(std::move(open)) {}

bool SettingsFile::waitFor(const std::function<bool()>& taken, SettingsTime deadline) const {
    while (!taken()) {
        if (clock_.now() >= deadline)
            return false;
        clock_.pause();
    }
    return true;
}

SettingsFile::Held SettingsFile::hold(LockedFile::Opening opening) const {
    const auto deadline = clock_.now() + kSettingsLockTimeout;
    auto mutex = MutexOf(path_);
    // One thread at a time opens the file: opening may empty it.
    Held held{mutex, std::unique_lock(*mutex, std::defer_lock), nullptr};
    if (!waitFor([&] { return held.one.try_lock(); }, deadline))
        return {};
    for (;;) {
        held.file = open_(path_, opening);
        if (!waitFor([&] { return held.file->tryLock(); }, deadline))
            return {};
        if (held.file->isAt(path_))
            return held;
        if (clock_.now() >= deadline)
            return {};
        // Another file was renamed over this one meanwhile. It is not emptied before its lock is had.
        if (opening == LockedFile::Opening::emptied)
            opening = LockedFile::Opening::kept;
    }
}

void SettingsFile::save(const TSettings& settings) const {
    try {
        // The file is emptied here, before the lock is taken; kept so.
        const auto held = hold(LockedFile::Opening::emptied);
        if (!held.file)
            throw_with_trace(make_error("can't get lock for save settings to file: ", path_.string()));
        held.file->replace(ObjectToJson(settings));
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "SaveSettings",
                 fmt::format("Can't save settings: {}, {}", e.what(), path_.string()));
    }
}

void SettingsFile::instance(const std::map<std::string, std::string>& values) const {
    Held held;
    try {
        held = hold(LockedFile::Opening::existing);
    } catch (const interprocess_exception& e) {
        LogError(__LINE__, "InstanceSettings", fmt::format("Can't lock settings file: {}", e.what()));
        return;
    }
    if (!held.file)
        throw_with_trace(std::runtime_error("can't get lock"));
    std::map<std::string, std::string> escaped;
    for (const auto& [key, value] : values)
        escaped[key] = JsonEscaped(value);
    std::string_view step = "read";
    try {
        auto text = held.file->read(kMaxJsonFile);
        ReplaceTemplates(text, escaped);
        step = "write";
        held.file->replace(text);
    } catch (const interprocess_exception& e) {
        throw_with_trace(
            make_error("[InstanceSettings] Can't ", step, " (", path_.string(), ") Error: ", e.what()));
    }
}

std::string NativeNameOf(const std::filesystem::path& module) {
    constexpr std::string_view kHostSuffix = ".vshost";
    auto name = module.stem().string();
    if (boost::algorithm::iends_with(name, kHostSuffix, std::locale::classic()))
        name.resize(name.size() - kHostSuffix.size());
    return name;
}

}  // namespace cmn::proto
