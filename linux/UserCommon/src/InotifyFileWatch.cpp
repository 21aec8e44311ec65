#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "common/log.h"
#include "usercommon/FileWatch.h"

namespace cmn {

namespace {

using ErrorCode = boost::system::error_code;

constexpr std::uint32_t kChanges = IN_MODIFY | IN_MOVE_SELF;

[[noreturn]] void ThrowLastError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// What a watch and its thread share; it goes with the last of them.
class FileChanges {
 public:
    // Throws std::system_error when the system has no more instances or descriptors.
    explicit FileChanges(std::function<void()> handler) : handler_(std::move(handler)) {
        const int instance = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (instance < 0) {
            ThrowLastError("inotify_init1");
        }
        ErrorCode error;
        instance_.assign(instance, error);
        if (error) {
            ::close(instance);
            throw boost::system::system_error(error);
        }
    }

    // False when the file cannot be opened. Throws std::system_error when the system watches enough already.
    bool add(const std::filesystem::path& file) {
        if (::inotify_add_watch(instance_.native_handle(), file.c_str(), kChanges) >= 0) {
            return true;
        }
        if (errno == ENOSPC || errno == ENOMEM) {
            ThrowLastError("inotify_add_watch");
        }
        return false;
    }

    // Returns after `stop`.
    void follow() {
        read();
        context_.run();
    }

    // No call of the handler begins from now on. Whether none is running either.
    bool stop() {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        context_.stop();
        return !calling_;
    }

 private:
    // What happens while the handler runs waits in the instance, so the last change is never missed.
    void read() {
        instance_.async_read_some(boost::asio::buffer(events_),
                                  [this](const ErrorCode& error, std::size_t size) {
                                      if (error) {
                                          return;  // an open instance can always be read
                                      }
                                      if (holdsChange(size)) {
                                          call();
                                      }
                                      read();
                                  });
    }

    bool holdsChange(std::size_t size) const {
        inotify_event event{};
        for (std::size_t i = 0; i + sizeof event <= size; i += sizeof event + event.len) {
            std::memcpy(&event, events_.data() + i, sizeof event);
            if ((event.mask & (kChanges | IN_Q_OVERFLOW)) != 0) {
                return true;
            }
        }
        return false;
    }

    void call() {
        {
            const std::lock_guard lock(mutex_);
            if (stopped_ || !handler_) {
                return;
            }
            calling_ = true;
        }
        try {
            handler_();
        } catch (const std::exception& e) {
            TLOG_ERROR("The handler of a watched file -- failed: {}", e.what());
        } catch (...) {
            TLOG_ERROR("The handler of a watched file -- failed: {}", "not a standard exception");
        }
        const std::lock_guard lock(mutex_);
        calling_ = false;
    }

    boost::asio::io_context context_{1};
    boost::asio::posix::stream_descriptor instance_{context_};
    std::array<char, 4096> events_{};
    const std::function<void()> handler_;
    std::mutex mutex_;  // guards what follows
    bool stopped_ = false;
    bool calling_ = false;
};

class InotifyFileWatch final : public FileWatch {
 public:
    explicit InotifyFileWatch(std::shared_ptr<FileChanges> changes)
        : changes_(std::move(changes)), thread_([shared = changes_] { shared->follow(); }) {}

    // A thread with a running handler is not waited for, it may be this one; it ends by itself.
    ~InotifyFileWatch() override { changes_->stop() ? thread_.join() : thread_.detach(); }

    InotifyFileWatch(const InotifyFileWatch&) = delete;
    InotifyFileWatch& operator=(const InotifyFileWatch&) = delete;

 private:
    const std::shared_ptr<FileChanges> changes_;
    std::thread thread_;
};

}  // namespace

std::unique_ptr<FileWatch> CreateFileWatch(const std::filesystem::path& file, std::function<void()> handler) {
    try {
        auto changes = std::make_shared<FileChanges>(std::move(handler));
        return changes->add(file) ? std::make_unique<InotifyFileWatch>(std::move(changes)) : nullptr;
    } catch (const std::exception& e) {
        TLOG_ERROR("Cannot watch {} -- {}", file.string(), e.what());
        return nullptr;
    }
}

}  // namespace cmn
