#include "WatchedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string_view>
#include <system_error>

#include "common/ScopedAction.h"

namespace cmn {

namespace {

// Nothing when it cannot be read to its end.
std::optional<std::string> ReadAtMost(int descriptor, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t used = 0;
    while (used < size) {
        const ssize_t count = ::read(descriptor, bytes.data() + used, size - used);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            used += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    bytes.resize(used);
    return bytes;
}

}  // namespace

WatchedFile::WatchedFile(const std::filesystem::path& file)
    : descriptor_(::open(file.c_str(), O_PATH | O_CLOEXEC)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "open");
    }
    content_ = readContent();
}

WatchedFile::~WatchedFile() {
    ::close(descriptor_);
}

std::string WatchedFile::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_);
}

bool WatchedFile::takeWritten() {
    const auto before = std::exchange(content_, readContent());
    return !before || before != content_;
}

std::optional<WatchedFile::Content> WatchedFile::readContent() const {
    struct stat status {};
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > static_cast<off_t>(kLargestContent)) {
        return std::nullopt;
    }
    const int opened = ::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (opened < 0) {
        return std::nullopt;
    }
    const ScopedAction closeOpened([opened] { ::close(opened); });
    // As much as there was a moment ago: if it grows meanwhile, another change will be reported.
    const auto bytes = ReadAtMost(opened, static_cast<std::size_t>(status.st_size));
    return bytes ? std::optional(Content(bytes->size(), std::hash<std::string_view>()(*bytes)))
                 : std::nullopt;
}

}  // namespace cmn
