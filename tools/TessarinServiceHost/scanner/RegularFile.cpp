#include "RegularFile.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "FileAccess.h"
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

void RequireRegular(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        Fail("Not a regular file");
    }
}

RegularFile::RegularFile(const std::string& path, const FileUser& user) {
    if (path.find('\0') != std::string::npos) {
        Fail("The path holds a NUL character");
    }
    if (user.isOther() && !path.empty() && path.front() != '/') {
        Fail("Not an absolute path");
    }
    descriptor_ = OpenRegularFile(path, user, status_);
    if (descriptor_ < 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw_with_trace(NoSuchFile(std::generic_category().message(errno)));
        }
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
           IsSameTime(ModificationTime(now), ModificationTime(status_)) &&
           IsSameTime(ChangeTime(now), ChangeTime(status_));
}

}  // namespace host
