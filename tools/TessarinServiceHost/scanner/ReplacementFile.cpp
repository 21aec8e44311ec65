#include "ReplacementFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "common/exceptions.h"

namespace host {

namespace {

[[noreturn]] void Fail(int error) {
    throw_with_trace(RewriteError(std::generic_category().message(error)));
}

void Check(bool succeeded) {
    if (!succeeded) {
        Fail(errno);
    }
}

}  // namespace

ReplacementFile::ReplacementFile(const std::filesystem::path& target)
    : name_(target.filename()),
      folder_(open(target.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    Check(folder_ >= 0);
    const std::string folder = "/proc/self/fd/" + std::to_string(folder_) + "/";
    std::string path = folder + ".tessarin-unseal-XXXXXX";
    descriptor_ = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        const int error = errno;
        close(folder_);
        Fail(error);
    }
    temporary_ = path.substr(folder.size());
}

ReplacementFile::~ReplacementFile() {
    close(descriptor_);
    if (!temporary_.empty()) {
        unlinkat(folder_, temporary_.c_str(), 0);
    }
    close(folder_);
}

void ReplacementFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        Check(count >= 0 || errno == EINTR);
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
}

void ReplacementFile::complete(const struct stat& original) {
    // The owner first: a change of it clears bits. Without it, a program must not run as someone else.
    const bool hasOwner = fchown(descriptor_, original.st_uid, original.st_gid) == 0;
    Check(fchmod(descriptor_, original.st_mode & (hasOwner ? 07777U : 0777U)) == 0);
    Check(fsync(descriptor_) == 0);
}

std::optional<struct stat> ReplacementFile::targetStatus() const {
    struct stat status {};
    const bool isThere = fstatat(folder_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    return isThere ? std::optional(status) : std::nullopt;
}

void ReplacementFile::replaceTarget() {
    Check(renameat(folder_, temporary_.c_str(), folder_, name_.c_str()) == 0);
    temporary_.clear();
}

}  // namespace host
