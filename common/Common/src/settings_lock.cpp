#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/sync/file_lock.hpp>

#include "settings_file.h"

namespace cmn::proto {

namespace {

class FileLock : public SettingsLock {
 public:
    explicit FileLock(const std::filesystem::path& path) : lock_(path.c_str()) {}

    bool lock(std::chrono::seconds timeout) override {
        const auto now = boost::posix_time::microsec_clock::universal_time();
        return lock_.timed_lock(now + boost::posix_time::seconds(timeout.count()));
    }

 private:
    boost::interprocess::file_lock lock_;
};

}  // namespace

std::unique_ptr<SettingsLock> OpenSettingsFileLock(const std::filesystem::path& path) {
    return std::make_unique<FileLock>(path);
}

}  // namespace cmn::proto
