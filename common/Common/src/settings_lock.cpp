#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/sync/file_lock.hpp>

#include "settings_file.h"

namespace cmn::proto {

namespace {

class FileLock : public SettingsLock {
 public:
    explicit FileLock(const std::filesystem::path& path) : lock_(path.c_str()) {}

    bool lock(SettingsTime deadline) override {
        const auto since1970 =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline.time_since_epoch());
        return lock_.timed_lock(boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1)) +
                                boost::posix_time::microseconds(since1970.count()));
    }

 private:
    boost::interprocess::file_lock lock_;
};

}  // namespace

SettingsTime SettingsNow() {
    return std::chrono::system_clock::now();
}

std::unique_ptr<SettingsLock> OpenSettingsFileLock(const std::filesystem::path& path) {
    return std::make_unique<FileLock>(path);
}

}  // namespace cmn::proto
