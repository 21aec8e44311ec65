#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

namespace fake {

// Another process that holds the lock of a file, with the plain record lock that any program uses, from the
// constructor until it is told to let go.
class OtherProcess {
 public:
    explicit OtherProcess(const std::filesystem::path& path) {
        EXPECT_EQ(pipe(ready_.data()), 0);
        EXPECT_EQ(pipe(go_.data()), 0);
        const std::string name = path.string();
        pid_ = fork();
        if (pid_ == 0)
            holdLock(name.c_str());
        char byte = 0;
        EXPECT_EQ(read(ready_[0], &byte, 1), 1);
    }
    ~OtherProcess() {
        letGo();
        for (const int fd : {ready_[0], ready_[1], go_[0]})
            close(fd);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    // Writes to the file first, as the owner of the lock may.
    void letGo() {
        if (pid_ < 0)
            return;
        close(go_[1]);
        int status = -1;
        EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
        EXPECT_EQ(status, 0);
        pid_ = -1;
    }

    static constexpr std::size_t kGarbageSize = 8'192;  // zeros

 private:
    [[noreturn]] void holdLock(const char* path) {
        close(go_[1]);
        const int fd = open(path, O_RDWR | O_CREAT, 0600);
        struct flock all {};
        all.l_type = F_WRLCK;
        if (fd < 0 || fcntl(fd, F_SETLK, &all) != 0)
            _exit(1);
        char byte = 'r';
        if (write(ready_[1], &byte, 1) != 1 || read(go_[0], &byte, 1) != 0)
            _exit(2);
        static const std::array<char, kGarbageSize> kGarbage{};
        if (write(fd, kGarbage.data(), kGarbage.size()) != static_cast<ssize_t>(kGarbage.size()))
            _exit(3);
        _exit(0);
    }

    std::array<int, 2> ready_{};
    std::array<int, 2> go_{};
    pid_t pid_ = -1;
};

// Whether another process can take the lock of the file now.
inline bool AnotherProcessCanLock(const std::filesystem::path& path) {
    const std::string name = path.string();
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(name.c_str(), O_RDWR);
        struct flock all {};
        all.l_type = F_WRLCK;
        _exit(fd >= 0 && fcntl(fd, F_SETLK, &all) == 0 ? 0 : errno == EAGAIN || errno == EACCES ? 1 : 2);
    }
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << status;
    return status == 0;
}

}  // namespace fake
