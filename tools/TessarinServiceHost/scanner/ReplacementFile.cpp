#include "ReplacementFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "FileAccess.h"
#include "common/ScopedAction.h"
#include "common/exceptions.h"
#include "common/log.h"

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

ReplacementFile::ReplacementFile(const std::filesystem::path& target, const FileUser& user)
    : user_(user), name_(target.filename()), folder_(OpenFolder(target.parent_path(), user)) {
    Check(folder_ >= 0);
    cmn::ScopedAction closeFolder([this] { close(folder_); });
    if (!targetStatus()) {
        throw_with_trace(TargetGone(std::generic_category().message(ENOENT)));
    }
    std::string name = ".tessarin-unseal-XXXXXX";
    descriptor_ = MakeTemporaryFile(folder_, name, user_);
    Check(descriptor_ >= 0);
    struct stat status {};
    maker_ = fstat(descriptor_, &status) == 0 ? status.st_uid : geteuid();
    temporary_ = std::move(name);
    closeFolder.disarm();
}

ReplacementFile::~ReplacementFile() {
    if (!temporary_.empty()) {
        removeTemporaryNoThrow();
    }
    close(descriptor_);
    close(folder_);
}

void ReplacementFile::removeTemporaryNoThrow() {
    try {
        // Folders like /tmp let only its owner remove a file.
        const bool isRemoved = fchown(descriptor_, maker_, static_cast<gid_t>(-1)) == 0 &&
                               user_.act([this] { return unlinkat(folder_, temporary_.c_str(), 0); }) == 0;
        if (!isRemoved && errno != ENOENT) {
            Fail(errno);
        }
    } catch (const std::runtime_error& e) {
        TLOG_WARN("A temporary file stays behind: {} -- {}", temporary_, e.what());
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
    const bool isHosts = hasOwner && !user_.isOther();
    Check(fchmod(descriptor_, original.st_mode & (isHosts ? 07777U : 0777U)) == 0);
    Check(fsync(descriptor_) == 0);
}

std::optional<struct stat> ReplacementFile::targetStatus() const {
    struct stat status {};
    const bool isThere =
        user_.act([&] { return fstatat(folder_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW); }) == 0;
    return isThere ? std::optional(status) : std::nullopt;
}

void ReplacementFile::replaceTarget() {
    Check(user_.act([this] { return renameat(folder_, temporary_.c_str(), folder_, name_.c_str()); }) == 0);
    temporary_.clear();
}

}  // namespace host
