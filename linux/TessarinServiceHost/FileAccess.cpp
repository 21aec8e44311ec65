#include "FileAccess.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "RegularFile.h"
#include "common/ScopedAction.h"
#include "common/exceptions.h"

namespace host {

namespace {

// A path that leads to the opened file, whatever becomes of its own.
std::string PathOf(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

// Opens what is at the path, as the user, but neither for reading nor for writing (O_PATH); `flags` are
// more of open's. For another user nothing is reached through the host's own descriptors.
int OpenPlace(const char* path, const FileUser& user, int flags = 0) {
    return user.act([&] {
        if (!user.isOther()) {
            return open(path, O_PATH | O_CLOEXEC | flags);
        }
        // What /proc says of the host's own descriptors leads past the folders in which their files are.
        open_how how{};
        how.flags = static_cast<unsigned>(O_PATH | O_CLOEXEC | flags);
        how.resolve = RESOLVE_NO_MAGICLINKS;
        return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how));
    });
}

}  // namespace

int OpenRegularFile(const std::string& path, const FileUser& user, struct stat& status) {
    const int place = OpenPlace(path.c_str(), user);
    if (place < 0) {
        return -1;
    }
    const cmn::ScopedAction closePlace([place] {
        const int error = errno;
        close(place);
        errno = error;
    });
    struct statfs system {};
    if (fstat(place, &status) != 0 || fstatfs(place, &system) != 0) {
        return -1;
    }
    RequireRegular(status);
    if (user.isOther() && system.f_type == PROC_SUPER_MAGIC) {
        throw_with_trace(std::runtime_error("It tells about the process that reads it"));
    }
    // Not by its path again, which may lead to another file by now.
    const std::string same = PathOf(place);
    return user.act([&] { return open(same.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
}

int OpenForWriting(int descriptor, const FileUser& user) {
    const std::string same = PathOf(descriptor);
    return user.act([&] { return open(same.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
}

std::filesystem::path PlaceOf(int descriptor) {
    std::error_code error;
    auto place = std::filesystem::read_symlink(PathOf(descriptor), error);
    if (error) {
        throw_with_trace(std::runtime_error(error.message()));
    }
    return place;
}

int OpenFolder(const std::filesystem::path& folder, const FileUser& user) {
    return OpenPlace(folder.c_str(), user, O_DIRECTORY);
}

int MakeTemporaryFile(int folder, std::string& name, const FileUser& user) {
    std::string path = PathOf(folder) + "/" + name;
    const int descriptor = user.act([&] { return mkostemp(path.data(), O_CLOEXEC); });
    name = path.substr(path.size() - name.size());
    return descriptor;
}

timespec ModificationTime(const struct stat& status) {
    return status.st_mtim;
}

timespec ChangeTime(const struct stat& status) {
    return status.st_ctim;
}

}  // namespace host
