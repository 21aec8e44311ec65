#include "RegularFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "common/exceptions.h"

namespace host {

namespace {

constexpr std::size_t kPiece = 65'536;

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

RegularFile::RegularFile(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        Fail("The path holds a NUL character");
    }
    descriptor_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor_ < 0) {
        FailWith(errno);
    }
    const int error = fstat(descriptor_, &status_) != 0 ? errno : 0;
    if (error != 0 || !S_ISREG(status_.st_mode)) {
        close(descriptor_);
        Fail(error != 0 ? std::generic_category().message(error) : "Not a regular file");
    }
}

RegularFile::~RegularFile() {
    close(descriptor_);
}

std::string RegularFile::read(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size) {
        const std::size_t used = bytes.size();
        bytes.resize(used + std::min(size - used, kPiece));
        const ssize_t count = ::read(descriptor_, bytes.data() + used, bytes.size() - used);
        const int error = errno;
        bytes.resize(used + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count == 0) {
            break;
        }
        if (count < 0 && error != EINTR) {
            FailWith(error);
        }
    }
    return bytes;
}

bool RegularFile::isUnchangedAt(const std::filesystem::path& path) const {
    struct stat now {};
    return lstat(path.c_str(), &now) == 0 && now.st_dev == status_.st_dev && now.st_ino == status_.st_ino &&
           now.st_size == status_.st_size && IsSameTime(now.st_mtim, status_.st_mtim) &&
           IsSameTime(now.st_ctim, status_.st_ctim);
}

}  // namespace host
