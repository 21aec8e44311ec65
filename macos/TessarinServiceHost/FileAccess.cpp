#include "FileAccess.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/param.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "RegularFile.h"
#include "common/ScopedAction.h"
#include "common/exceptions.h"

namespace host {

namespace {

bool IsSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

void CloseQuietly(int descriptor) {
    const int error = errno;
    close(descriptor);
    errno = error;
}

// Opens the file behind a descriptor once more, by the path that the system knows of it, in which nothing is
// a symbolic link. Another file that is there by now is not taken.
int OpenAgain(int descriptor, const FileUser& user, int flags) {
    std::array<char, MAXPATHLEN> path{};
    if (fcntl(descriptor, F_GETPATH, path.data()) != 0) {
        return -1;
    }
    const int again = user.act(
        [&] { return open(path.data(), flags | O_NOFOLLOW_ANY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    struct stat first {};
    struct stat second {};
    if (again < 0) {
        return -1;
    }
    if (fstat(descriptor, &first) == 0 && fstat(again, &second) == 0 && IsSameFile(first, second)) {
        return again;
    }
    close(again);
    errno = ENOENT;
    return -1;
}

}  // namespace

int OpenRegularFile(const std::string& path, const FileUser& user, struct stat& status) {
    // Before it is opened: whoever waits at the other end of a FIFO is not to notice.
    if (user.act([&] { return stat(path.c_str(), &status); }) != 0) {
        return -1;
    }
    RequireRegular(status);
    const int descriptor =
        user.act([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    if (descriptor < 0) {
        return -1;
    }
    cmn::ScopedAction closeFirst([descriptor] { CloseQuietly(descriptor); });
    if (fstat(descriptor, &status) != 0) {
        return -1;
    }
    RequireRegular(status);
    if (user.isOther()) {
        // A path in /dev/fd leads to what the host itself has open. The user has to reach the file without
        // that.
        return OpenAgain(descriptor, user, O_RDONLY);
    }
    closeFirst.disarm();
    return descriptor;
}

int OpenForWriting(int descriptor, const FileUser& user) {
    return OpenAgain(descriptor, user, O_WRONLY);
}

std::filesystem::path PlaceOf(int descriptor) {
    std::array<char, MAXPATHLEN> path{};
    if (fcntl(descriptor, F_GETPATH, path.data()) != 0) {
        throw_with_trace(std::runtime_error(std::generic_category().message(errno)));
    }
    return path.data();
}

// The user has to be allowed to list it.
int OpenFolder(const std::filesystem::path& folder, const FileUser& user) {
    return user.act(
        [&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC); });
}

int MakeTemporaryFile(int folder, std::string& name, const FileUser& user) {
    return user.act([&] { return mkostempsat_np(folder, name.data(), 0, O_CLOEXEC); });
}

timespec ModificationTime(const struct stat& status) {
    return status.st_mtimespec;
}

timespec ChangeTime(const struct stat& status) {
    return status.st_ctimespec;
}

}  // namespace host
