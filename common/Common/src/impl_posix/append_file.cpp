#include "append_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace cmn {

namespace {

constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

int OpenForAppending(const char* file) noexcept {
    int descriptor = -1;
    do {
        // Without O_NONBLOCK a FIFO of that name would hold the writer up until somebody reads it.
        descriptor = open(
            file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, kOwnerOnly);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// How many bytes were taken.
std::size_t WriteAll(int descriptor, std::string_view text) noexcept {
    std::size_t taken = 0;
    while (taken < text.size()) {
        const ssize_t count = write(descriptor, text.data() + taken, text.size() - taken);
        if (count > 0)
            taken += static_cast<std::size_t>(count);
        else if (count == 0 || errno != EINTR)
            break;
    }
    return taken;
}

// Cuts off the file's last bytes, unless somebody has written behind them.
bool TakeBack(int descriptor, std::size_t count) noexcept {
    const off_t end = lseek(descriptor, 0, SEEK_CUR);
    struct stat status {};
    return end >= 0 && fstat(descriptor, &status) == 0 && status.st_size == end &&
           ftruncate(descriptor, end - static_cast<off_t>(count)) == 0;
}

}  // namespace

std::optional<std::size_t> AppendToFile(const char* file, std::string_view text) noexcept {
    const int descriptor = OpenForAppending(file);
    if (descriptor < 0)
        return std::nullopt;
    std::size_t taken = WriteAll(descriptor, text);
    if (taken > 0 && taken < text.size()) {
        const std::size_t wholeLines = text.substr(0, taken).rfind('\n') + 1;
        if (TakeBack(descriptor, taken - wholeLines))
            taken = wholeLines;
    }
    // Some file systems tell only here that they have not kept what they took.
    return close(descriptor) == 0 || errno == EINTR ? taken : 0;
}

void WriteToStandardError(std::string_view text) noexcept {
    WriteAll(STDERR_FILENO, text);
}

}  // namespace cmn
