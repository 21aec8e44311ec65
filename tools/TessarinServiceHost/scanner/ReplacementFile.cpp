#include "ReplacementFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "common/exceptions.h"

namespace host {

namespace {

void Check(bool succeeded) {
    if (!succeeded) {
        throw_with_trace(RewriteError(std::generic_category().message(errno)));
    }
}

}  // namespace

ReplacementFile::ReplacementFile(std::filesystem::path target)
    : target_(std::move(target)), temporary_(target_.parent_path() / ".tessarin-unseal-XXXXXX") {
    descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
    Check(descriptor_ >= 0);
}

ReplacementFile::~ReplacementFile() {
    close(descriptor_);
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
    }
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

void ReplacementFile::replaceTarget() {
    Check(std::rename(temporary_.c_str(), target_.c_str()) == 0);
    temporary_.clear();
}

}  // namespace host
