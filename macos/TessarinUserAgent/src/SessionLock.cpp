#include "SessionLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace useragent {

SessionLock::SessionLock(const std::filesystem::path& file)
    : file_(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (file_ >= 0 && flock(file_, LOCK_EX | LOCK_NB) != 0) {
        held_ = errno != EWOULDBLOCK;
    }
}

SessionLock::~SessionLock() {
    if (file_ >= 0) {
        close(file_);
    }
}

}  // namespace useragent
