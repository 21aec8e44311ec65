#include "linux_bus/Loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "LoopCore.h"
#include "common/log.h"
#include "common/threads.h"

namespace cmn::bus {

namespace {

// What the sets report; the others in the inner set are watches.
constexpr std::uint64_t kTimer = 0;
constexpr std::uint64_t kInner = 1;
constexpr std::uint64_t kWaker = 2;

int Control(int set, int operation, int descriptor, std::uint32_t events, std::uint64_t id) {
    epoll_event event{events, {.u64 = id}};
    return epoll_ctl(set, operation, descriptor, &event);
}

void RunNoThrow(const Loop::Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
}

}  // namespace

Descriptor::Descriptor(int value) : value_(value) {
    if (value < 0) {
        throw std::system_error(errno, std::generic_category(), "descriptor of a loop");
    }
}

Descriptor::~Descriptor() {
    ::close(value_);
}

Loop::Core::Core()
    : outer(epoll_create1(EPOLL_CLOEXEC)),
      inner(epoll_create1(EPOLL_CLOEXEC)),
      waker(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (Control(inner, EPOLL_CTL_ADD, timer, EPOLLIN | EPOLLET, kTimer) < 0 ||
        Control(outer, EPOLL_CTL_ADD, inner, EPOLLIN | EPOLLONESHOT, kInner) < 0 ||
        Control(outer, EPOLL_CTL_ADD, waker, EPOLLIN | EPOLLET, kWaker) < 0) {
        throw std::system_error(errno, std::generic_category(), "descriptors of a loop");
    }
}

// --- The threads

void Loop::Core::addThread() {
    threads.push_back(
        MakeThread([this] { return std::thread([core = shared_from_this()] { core->run(); }); }));
    ++alive;
}

void Loop::Core::run() {
    tHere.loop = this;
    Lock lock(mutex);
    while (!stopped) {
        if (!inLoop && (heard || !posted.empty())) {
            turn(lock);
        } else if (!runTask(lock)) {
            wait(lock);
        }
    }
    leave(lock);
}

void Loop::Core::wait(Lock& lock) {
    lock.unlock();
    epoll_event event{};
    const bool told = epoll_wait(outer, &event, 1, -1) == 1;
    lock.lock();
    heard = heard || (told && event.data.u64 == kInner);
    waking = waking && (!told || event.data.u64 != kWaker);
}

// A thread that waits: it looks after whatever there is. All of them, once the loop has stopped.
void Loop::Core::wakeOne() {
    if (!std::exchange(waking, true) || stopped) {
        eventfd_write(waker, 1);
    }
}

void Loop::Core::leave(Lock& lock) {
    if (--alive > 0) {
        return;
    }
    inLoop = true;  // the last one: no other thread is
    tHere.inLoop = this;
    runPosted(lock);
    // What these own may own the loop.
    const auto unheard = std::exchange(watches, {});
    const auto late = std::exchange(timers, {});
    std::vector<std::deque<Task>> tasks;
    for (const auto& lane : lanes) {
        tasks.push_back(std::exchange(lane->tasks, {}));
    }
    lock.unlock();
}

// --- In the loop

void Loop::Core::turn(Lock& lock) {
    inLoop = true;
    tHere.inLoop = this;
    bool listens = true;
    while (!stopped && (heard || !posted.empty())) {
        if (std::exchange(heard, false)) {
            listens = false;
            hear(lock);
        }
        runPosted(lock);
    }
    if (!listens) {
        Control(outer, EPOLL_CTL_MOD, inner, EPOLLIN | EPOLLONESHOT, kInner);
    }
    tHere.inLoop = nullptr;
    inLoop = false;
    handedOver = 0;
}

void Loop::Core::hear(Lock& lock) {
    std::array<epoll_event, 16> events{};  // what is left is told again
    lock.unlock();
    const int count = epoll_wait(inner, events.data(), static_cast<int>(events.size()), 0);
    lock.lock();
    for (int i = 0; i < count; ++i) {
        const std::uint64_t id = events.at(static_cast<std::size_t>(i)).data.u64;
        if (id == kTimer) {
            runTimers(lock);
        } else if (const auto watch = watches.find(id); watch != watches.end()) {
            auto ready = watch->second;
            lock.unlock();
            RunNoThrow(*ready);
            ready.reset();
            lock.lock();
        }
    }
}

void Loop::Core::runTimers(Lock& lock) {
    timerSet = Clock::time_point::max();
    const auto now = Clock::now();
    while (!stopped && !timers.empty() && timers.begin()->first.first <= now) {
        auto due = timers.extract(timers.begin());
        lock.unlock();
        RunNoThrow(due.mapped());
        due = {};
        lock.lock();
    }
    setTimer();
}

void Loop::Core::runPosted(Lock& lock) {
    std::vector<Task> tasks;
    tasks.swap(posted);
    lock.unlock();
    for (Task& task : tasks) {
        RunNoThrow(task);
        task = nullptr;
    }
    lock.lock();
}

Loop::TimerId Loop::Core::schedule(Clock::time_point time, Task task) {
    const TimerId id(time, ++lastTimer);
    timers.emplace(id, std::move(task));
    setTimer();
    return id;
}

// Not for the last one that was cancelled: another one follows mostly.
void Loop::Core::setTimer() {
    if (timers.empty() || timers.begin()->first.first == timerSet) {
        return;
    }
    const auto time = timerSet = timers.begin()->first.first;
    const auto since = std::max<Clock::duration>(time.time_since_epoch(), std::chrono::nanoseconds(1));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    const itimerspec spec{{}, {seconds.count(), std::chrono::nanoseconds(since - seconds).count()}};
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &spec, nullptr);
}

// --- From any thread

Loop::Loop() : core_(std::make_shared<Core>()) {
    core_->addThread();
}

Loop::~Loop() {
    stop();
}

void Loop::post(Task task) {
    const std::lock_guard lock(core_->mutex);
    if (!core_->stopped) {
        core_->posted.push_back(std::move(task));
        if (!core_->inLoop) {
            core_->wakeOne();
        }
    }
}

Loop::TimerId Loop::at(Clock::time_point time, Task task) {
    const std::lock_guard lock(core_->mutex);
    return core_->stopped ? TimerId() : core_->schedule(time, std::move(task));
}

void Loop::cancel(const TimerId& timer) {
    Task task;  // destroyed without the mutex
    const std::lock_guard lock(core_->mutex);
    if (auto cancelled = core_->timers.extract(timer)) {
        task = std::move(cancelled.mapped());
    }
}

Loop::WatchId Loop::watch(int descriptor, Task ready) {
    const std::lock_guard lock(core_->mutex);
    const WatchId id = ++core_->lastWatch;
    if (Control(core_->inner, EPOLL_CTL_ADD, descriptor, EPOLLIN, id) < 0) {
        return 0;
    }
    core_->watches.emplace(id, std::make_shared<const Task>(std::move(ready)));
    return id;
}

void Loop::wantToWrite(WatchId id, int descriptor, bool wanted) {
    Control(core_->inner, EPOLL_CTL_MOD, descriptor, EPOLLIN | (wanted ? EPOLLOUT : 0U), id);
}

void Loop::unwatch(WatchId id, int descriptor) {
    Control(core_->inner, EPOLL_CTL_DEL, descriptor, 0, id);
    std::shared_ptr<const Task> ready;  // destroyed without the mutex
    const std::lock_guard lock(core_->mutex);
    if (const auto watch = core_->watches.extract(id)) {
        ready = watch.mapped();
    }
}

void Loop::stop() {
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(core_->mutex);
        if (std::exchange(core_->stopped, true)) {
            return;
        }
        threads.swap(core_->threads);
        Control(core_->outer, EPOLL_CTL_MOD, core_->waker, EPOLLIN, kWaker);
        core_->wakeOne();
    }
    for (std::thread& thread : threads) {
        if (tHere.loop == core_.get()) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

}  // namespace cmn::bus
