#include "linux_bus/Loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "LoopCore.h"
#include "common/log.h"
#include "common/threads.h"

namespace cmn::bus {

namespace {

int Control(int set, int operation, int descriptor, std::uint32_t events, std::uint64_t id) {
    epoll_event event{events, {.u64 = id}};
    return epoll_ctl(set, operation, descriptor, &event);
}

timespec ToTimespec(std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {seconds.count(), (time - seconds).count()};
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

Loop::Core::Core(std::chrono::nanoseconds patienceWithTasks)
    : outer(epoll_create1(EPOLL_CLOEXEC)),
      inner(epoll_create1(EPOLL_CLOEXEC)),
      waker(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      listenerWaker(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      patienceTimer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      patience(patienceWithTasks) {
    if (Control(inner, EPOLL_CTL_ADD, timer, EPOLLIN | EPOLLET, kTimer) < 0 ||
        Control(inner, EPOLL_CTL_ADD, listenerWaker, EPOLLIN | EPOLLET, kWaker) < 0 ||
        Control(outer, EPOLL_CTL_ADD, inner, EPOLLIN | EPOLLONESHOT, kInner) < 0 ||
        Control(outer, EPOLL_CTL_ADD, waker, EPOLLIN | EPOLLET, kWaker) < 0 ||
        Control(outer, EPOLL_CTL_ADD, patienceTimer, EPOLLIN | EPOLLET, kPatienceTimer) < 0) {
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
        } else if (runTask(lock)) {
            continue;
        } else if (keeps() && !inLoop) {
            listen(lock);
        } else {
            giveBack();
            wait(lock);
        }
    }
    leave(lock);
}

void Loop::Core::listen(Lock& lock) {
    listening = true;
    lock.unlock();
    const int count = epoll_wait(inner, heardOf.data(), static_cast<int>(heardOf.size()), -1);
    lock.lock();
    listening = wakingListener = false;
    heardOfCount = std::max(count, 0);
    heard = true;
    if (inLoop) {
        keeper = nullptr;  // that one hears it
    }
}

void Loop::Core::wait(Lock& lock) {
    ++idle;
    lock.unlock();
    epoll_event event{};
    const bool told = epoll_wait(outer, &event, 1, -1) == 1;
    lock.lock();
    --idle;
    if (!told) {
        return;
    }
    heard = heard || event.data.u64 == kInner;
    waking = waking && event.data.u64 != kWaker;
    if (event.data.u64 == kPatienceTimer) {
        keptForLong();
    }
}

// --- Who listens

bool Loop::Core::keeps() const {
    return keeper == &tHere;
}

void Loop::Core::giveBack() {
    if (keeps()) {
        keeper = nullptr;
        Control(outer, EPOLL_CTL_MOD, inner, EPOLLIN | EPOLLONESHOT, kInner);
        wakeForTasks();
    }
}

// While this thread runs a task. The timer is not stopped when that has ended: mostly another one follows.
void Loop::Core::limitKeeping() {
    if (std::exchange(isLimited, true)) {
        return;
    }
    limitedAt = looks;
    const itimerspec spec{{}, ToTimespec(patience)};
    timerfd_settime(patienceTimer, 0, &spec, nullptr);
}

void Loop::Core::keptForLong() {
    isLimited = false;
    if (keeper == nullptr || listening) {
        return;
    }
    if (looks != limitedAt || inLoop) {
        limitKeeping();  // it has looked since
    } else {
        keeper = &tHere;
        giveBack();
    }
}

// A thread that waits: it looks after whatever there is. Rather one that does not listen.
void Loop::Core::wakeOne() {
    if (idle == 0 && listening) {
        if (!std::exchange(wakingListener, true)) {
            eventfd_write(listenerWaker, 1);
        }
    } else if (!std::exchange(waking, true)) {
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
    while (!stopped && (heard || !posted.empty())) {
        if (std::exchange(heard, false)) {
            keeper = &tHere;
            ++looks;
            hear(lock);
        }
        runPosted(lock);
    }
    tHere.inLoop = nullptr;
    inLoop = false;
}

void Loop::Core::hear(Lock& lock) {
    int count = std::exchange(heardOfCount, 0);
    if (count == 0) {
        lock.unlock();
        count = epoll_wait(inner, heardOf.data(), static_cast<int>(heardOf.size()), 0);
        lock.lock();
    }
    for (int i = 0; i < count; ++i) {
        const std::uint64_t id = heardOf.at(static_cast<std::size_t>(i)).data.u64;
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
    const itimerspec spec{{}, ToTimespec(since)};
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &spec, nullptr);
}

// --- From any thread

Loop::Loop(std::chrono::nanoseconds patience) : core_(std::make_shared<Core>(patience)) {
    core_->addThread();
}

Loop::~Loop() {
    stop();
}

void Loop::post(Task task) {
    const std::lock_guard lock(core_->mutex);
    if (!core_->stopped) {
        core_->posted.push_back(std::move(task));
        if (tHere.inLoop != core_.get()) {
            core_->giveBack();  // who asks for something may wait for it
        }
        if (!core_->inLoop) {
            core_->wakeOne();
        }
    }
}

void Loop::aboutToWait() {
    if (auto* const core = static_cast<Core*>(tHere.loop)) {
        const std::lock_guard lock(core->mutex);
        core->giveBack();
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
        // All of them.
        Control(core_->outer, EPOLL_CTL_MOD, core_->waker, EPOLLIN, Core::kWaker);
        eventfd_write(core_->waker, 1);
        eventfd_write(core_->listenerWaker, 1);
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
