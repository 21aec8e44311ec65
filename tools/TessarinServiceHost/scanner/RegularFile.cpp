#include "RegularFile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "common/ScopedAction.h"
#include "common/exceptions.h"

namespace host {

namespace {

[[noreturn]] void Fail(const std::string& reason) {
    throw_with_trace(std::runtime_error(reason));
}

[[noreturn]] void FailWith(int error) {
    Fail(std::generic_category().message(error));
}

bool IsSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

RegularFile::RegularFile(const std::string& path, const FileUser& user) {
    if (path.find('\0') != std::string::npos) {
        Fail("The path holds a NUL character");
    }
    if (user.isOther() && !path.empty() && path.front() != '/') {
        Fail("Not an absolute path");
    }
    const int place = user.openPlace(path.c_str());
    if (place < 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw_with_trace(NoSuchFile(std::generic_category().message(errno)));
        }
        FailWith(errno);
    }
    const cmn::ScopedAction closePlace([place] { close(place); });
    struct statfs system {};
    if (fstat(place, &status_) != 0 || fstatfs(place, &system) != 0) {
        FailWith(errno);
    }
    if (!S_ISREG(status_.st_mode)) {
        Fail("Not a regular file");
    }
    if (user.isOther() && system.f_type == PROC_SUPER_MAGIC) {
        Fail("It tells about the process that reads it");
    }
    // Not by its path again, which may lead to another file by now.
    const std::string same = "/proc/self/fd/" + std::to_string(place);
    descriptor_ = user.act([&] { return open(same.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    if (descriptor_ < 0) {
        FailWith(errno);
    }
}

RegularFile::~RegularFile() {
    close(descriptor_);
}

std::string RegularFile::read(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t used = 0;
    while (used < size) {
        const ssize_t count = ::read(descriptor_, bytes.data() + used, size - used);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            used += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            FailWith(errno);
        }
    }
    bytes.resize(used);
    return bytes;
}

bool RegularFile::isUnchanged(const struct stat& now) const {
    return now.st_dev == status_.st_dev && now.st_ino == status_.st_ino && now.st_size == status_.st_size &&
           IsSameTime(now.st_mtim, status_.st_mtim) && IsSameTime(now.st_ctim, status_.st_ctim);
}

}  // namespace host
