#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "Common/Failures.h"
#include "FileText.h"
#include "support/LogCapture.h"

namespace host {
namespace {

TEST(LinuxFileTextTest, LooksAtWhatIsNoRegularFileWithoutOpeningIt) {
    const fake::TemporaryFolder folder;
    const auto read = [](const std::string& path) {
        ScanBounds bounds;
        ReadFileText(path, FileUser(), 100, bounds);
    };
    const auto fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // Whoever opens a FIFO for reading lets a waiting writer go on.
    const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(opened, fifo.c_str(), IN_OPEN), 0);
    EXPECT_EQ(fake::FailureOf([&] { read(fifo); }), "Not a regular file");
    std::array<char, 4096> events{};
    EXPECT_EQ(::read(opened, events.data(), events.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
    close(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_GT(::read(opened, events.data(), events.size()), 0) << "the test would have noticed";
    close(opened);
}

}  // namespace
}  // namespace host
