#include "FileChanges.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>

#include "usercommon/CallNoThrow.h"

namespace cmn {

namespace {

using ErrorCode = boost::system::error_code;

constexpr std::uint32_t kChanges = IN_MODIFY | IN_MOVE_SELF;

[[noreturn]] void ThrowLastError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Process {
    std::mutex mutex;
    std::shared_ptr<FileChanges> instance;  // null when nothing is watched
};

// Never destroyed: a watch may be one of the last objects of the process.
Process& TheProcess() {
    static auto& process = *new Process;
    return process;
}

}  // namespace

FileChanges::FileChanges() {
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

std::shared_ptr<FileChanges> FileChanges::Watch(const std::shared_ptr<FileToWatch>& file) {
    Process& process = TheProcess();
    const std::lock_guard lock(process.mutex);
    if (process.instance) {
        return process.instance->add(file) ? process.instance : nullptr;
    }
    auto first = std::make_shared<FileChanges>();
    if (!first->add(file)) {
        return nullptr;
    }
    first->start();
    process.instance = first;
    return first;
}

bool FileChanges::add(const std::shared_ptr<FileToWatch>& file) {
    const int number = ::inotify_add_watch(instance_.native_handle(), file->file.path().c_str(), kChanges);
    if (number < 0) {
        if (errno == ENOSPC || errno == ENOMEM) {
            ThrowLastError("inotify_add_watch");
        }
        return false;
    }
    files_.emplace(number, file);
    file->number = number;
    file->isWatched = true;
    return true;
}

void FileChanges::unwatch(FileToWatch& file) {
    std::thread ended;
    bool isFree = false;
    std::shared_ptr<FileToWatch> dropped;  // after the mutex: what its handler holds may lock it
    {
        Process& process = TheProcess();
        const std::lock_guard lock(process.mutex);
        const auto [begin, end] = files_.equal_range(file.number);
        const auto entry =
            std::find_if(begin, end, [&](const auto& item) { return item.second.get() == &file; });
        dropped = std::move(entry->second);
        files_.erase(entry);
        file.isWatched = false;
        if (!files_.contains(file.number)) {
            ::inotify_rm_watch(instance_.native_handle(), file.number);
        }
        if (files_.empty()) {
            process.instance.reset();
            context_.stop();
            ended = std::move(thread_);
            isFree = !calling_ && ended.get_id() != std::this_thread::get_id();
        }
    }
    if (ended.joinable()) {
        // A thread that calls a handler, or lets one go, ends by itself.
        isFree ? ended.join() : ended.detach();
    }
}

void FileChanges::start() {
    thread_ = std::thread([self = shared_from_this()] {
        self->read();
        self->context_.run();
    });
}

// What happens while a handler runs waits in the instance, so the last change is never missed.
void FileChanges::read() {
    instance_.async_read_some(boost::asio::buffer(events_), [this](const ErrorCode& error, std::size_t size) {
        if (error) {
            return;  // an open instance can always be read
        }
        for (const auto& [file, events] : changedFiles(size)) {
            tell(*file, events);
        }
        read();
    });
}

std::vector<FileChanges::Changed> FileChanges::changedFiles(std::size_t size) const {
    std::map<int, std::uint32_t> numbers;
    std::uint32_t toAll = 0;
    inotify_event event{};
    for (std::size_t i = 0; i + sizeof event <= size; i += sizeof event + event.len) {
        std::memcpy(&event, events_.data() + i, sizeof event);
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            toAll = kChanges;
        } else {
            numbers[event.wd] |= event.mask & kChanges;
        }
    }
    std::vector<Changed> changed;
    const std::lock_guard lock(TheProcess().mutex);
    for (const auto& [number, file] : files_) {
        const auto found = numbers.find(number);
        const std::uint32_t events = toAll | (found != numbers.end() ? found->second : 0);
        if (events != 0) {
            changed.emplace_back(file, events);
        }
    }
    return changed;
}

void FileChanges::tell(FileToWatch& file, std::uint32_t events) {
    // Before the handler is called: what is written during the call is another content then.
    const bool isWritten = (events & IN_MODIFY) != 0 && file.file.takeWritten();
    if (!file.handler || !(isWritten || (events & IN_MOVE_SELF) != 0)) {
        return;
    }
    {
        const std::lock_guard lock(TheProcess().mutex);
        if (!file.isWatched) {
            return;
        }
        calling_ = true;
    }
    CallNoThrow("The handler of a watched file", file.handler);
    const std::lock_guard lock(TheProcess().mutex);
    calling_ = false;
}

}  // namespace cmn
