#include "LockedFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/interprocess/exceptions.hpp>
#include <cerrno>

#include "common/exceptions.h"

namespace cmn {

namespace {

using boost::interprocess::interprocess_exception;

[[noreturn]] void Fail(int error) {
    throw_with_trace(interprocess_exception(boost::interprocess::error_info(error)));
}

[[noreturn]] void Fail(const std::string& reason) {
    throw_with_trace(interprocess_exception(reason.c_str()));
}

class Descriptor {
 public:
    Descriptor(const std::filesystem::path& path, int flags)
        : descriptor_(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666)) {
        if (descriptor_ < 0 || fstat(descriptor_, &status_) != 0)
            error_ = errno;
    }
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return descriptor_; }
    int error() const { return error_; }                   // 0 when the file could be opened
    const struct stat& status() const { return status_; }  // as it was opened
    bool isRegular() const { return S_ISREG(status_.st_mode); }

    // To the file's end, whatever size it claimed to have.
    std::string read(std::size_t limit, const struct stat& status) const {
        constexpr std::size_t kLeast = 4096;
        const auto claimed = static_cast<std::size_t>(status.st_size);
        std::string bytes;
        std::size_t used = 0;
        // One byte more than fits, to see that there are no more.
        for (auto room = std::max(claimed + 1, kLeast); used <= limit; room *= 2) {
            bytes.resize(std::min(room, limit + 1));
            used += readAt(used, bytes.data() + used, bytes.size() - used, claimed);
            if (used < bytes.size()) {
                bytes.resize(used);
                return bytes;
            }
        }
        Fail("larger than " + std::to_string(limit) + " bytes");
    }

 private:
    // Less than `size` at the file's end only. A short read that has all that was claimed is there; a file
    // may claim to have nothing.
    std::size_t readAt(std::size_t offset, char* buffer, std::size_t size, std::size_t claimed) const {
        std::size_t used = 0;
        while (used < size) {
            const auto count =
                pread(descriptor_, buffer + used, size - used, static_cast<off_t>(offset + used));
            if (count < 0 && errno != EINTR)
                Fail(errno);
            if (count == 0)
                break;
            used += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
            if (claimed > 0 && offset + used >= claimed)
                break;
        }
        return used;
    }

    int descriptor_;
    int error_ = 0;
    struct stat status_ {};
};

int FlagsFor(LockedFile::Opening opening) {
    switch (opening) {
        case LockedFile::Opening::existing:
            return O_RDWR;
        case LockedFile::Opening::kept:
            return O_RDWR | O_CREAT;
        case LockedFile::Opening::emptied:
            return O_RDWR | O_CREAT | O_TRUNC;
    }
    return O_RDWR;
}

class PosixLockedFile : public LockedFile {
 public:
    PosixLockedFile(const std::filesystem::path& path, Opening opening) : file_(path, FlagsFor(opening)) {
        if (file_.error() != 0)
            Fail(file_.error());
        if (!file_.isRegular() && (opening == Opening::existing || !S_ISCHR(file_.status().st_mode)))
            Fail("not a regular file");
    }

    // Asked for, because a process that is just being started may still hold a copy of the descriptor.
    ~PosixLockedFile() override { setLock(F_UNLCK); }
    PosixLockedFile(const PosixLockedFile&) = delete;
    PosixLockedFile& operator=(const PosixLockedFile&) = delete;

    bool tryLock() override {
        if (setLock(F_WRLCK))
            return true;
        if (errno != EAGAIN && errno != EACCES)
            Fail(errno);
        return false;
    }

    bool isAt(const std::filesystem::path& path) const override {
        struct stat there {};
        return stat(path.c_str(), &there) == 0 && there.st_dev == file_.status().st_dev &&
               there.st_ino == file_.status().st_ino;
    }

    std::string read(std::size_t limit) override {
        struct stat now {};
        if (fstat(file_.get(), &now) != 0)
            Fail(errno);
        return file_.read(limit, now);
    }

    void replace(const std::string& text) override {
        // A write beyond this limit is a signal that ends the process, unless it is ignored.
        rlimit largest{};
        if (getrlimit(RLIMIT_FSIZE, &largest) == 0 && text.size() > largest.rlim_cur)
            Fail(EFBIG);
        if (file_.isRegular() && ftruncate(file_.get(), 0) != 0)
            Fail(errno);
        for (std::size_t done = 0; done < text.size();) {
            const auto count =
                pwrite(file_.get(), text.data() + done, text.size() - done, static_cast<off_t>(done));
            if (count < 0 && errno != EINTR)
                Fail(errno);
            done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        }
    }

 private:
    // The whole file. A lock of this kind belongs to the descriptor, not to the process, and excludes those
    // of processes as well.
    bool setLock(short type) {
        struct flock whole {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        int result = 0;
        while ((result = fcntl(file_.get(), F_OFD_SETLK, &whole)) != 0 && errno == EINTR) {
        }
        return result == 0;
    }

    Descriptor file_;
};

}  // namespace

std::unique_ptr<LockedFile> OpenLockedFile(const std::filesystem::path& path, LockedFile::Opening opening) {
    return std::make_unique<PosixLockedFile>(path, opening);
}

std::string ReadRegularFile(const std::filesystem::path& path, std::size_t limit) {
    const Descriptor file(path, O_RDONLY);
    if (file.error() != 0)
        throw_with_trace(std::runtime_error("failed to open stream"));
    if (!file.isRegular())
        throw_with_trace(std::runtime_error("not a regular file"));
    try {
        return file.read(limit, file.status());
    } catch (const interprocess_exception& e) {
        throw_with_trace(std::runtime_error(e.what()));
    }
}

}  // namespace cmn
