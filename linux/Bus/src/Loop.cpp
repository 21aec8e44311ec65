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

constexpr std::uint64_t kTimer = 0;  // among the watches' ids

// Of this thread.
thread_local const void* tLoop = nullptr;    // whose it is
thread_local const void* tInLoop = nullptr;  // in which it is
thread_local const void* tLane = nullptr;    // of which it runs a task

int Add(int set, int descriptor, std::uint32_t events, std::uint64_t id) {
    epoll_event event{events, {.u64 = id}};
    return epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
}

void Change(int set, int descriptor, std::uint32_t events, std::uint64_t id) {
    epoll_event event{events, {.u64 = id}};
    epoll_ctl(set, EPOLL_CTL_MOD, descriptor, &event);
}

void RunNoThrow(const Loop::Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
}

}  // namespace

Loop::Core::Descriptor::Descriptor(int value) : value_(value) {
    if (value < 0) {
        throw std::system_error(errno, std::generic_category(), "descriptor of a loop");
    }
}

Loop::Core::Descriptor::~Descriptor() {
    ::close(value_);
}

Loop::Core::Core()
    : outer_(epoll_create1(EPOLL_CLOEXEC)),
      inner_(epoll_create1(EPOLL_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    const auto must = [](int result) {
        if (result < 0) {
            throw std::system_error(errno, std::generic_category(), "descriptors of a loop");
        }
    };
    must(Add(inner_, timer_, EPOLLIN | EPOLLET, kTimer));
    must(Add(outer_, inner_, EPOLLIN | EPOLLONESHOT, static_cast<std::uint64_t>(inner_)));
    must(Add(outer_, wake_, EPOLLIN | EPOLLET, static_cast<std::uint64_t>(wake_)));
}

// --- The threads

void Loop::Core::addFirstThread() {
    threads_.push_back(
        MakeThread([this] { return std::thread([core = shared_from_this()] { core->run(); }); }));
    ++alive_;
}

bool Loop::Core::addThread() {
    try {
        addFirstThread();
        complained_ = false;
        return true;
    } catch (const std::system_error& e) {
        if (!std::exchange(complained_, true)) {
            TLOG_WARN("Tasks have to make do with {} threads: {}", alive_, e.what());
        }
        return false;
    }
}

void Loop::Core::run() {
    tLoop = this;
    Lock lock(mutex_);
    while (!stopped_) {
        if (!inLoop_ && (heard_ || !posted_.empty())) {
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
    const bool told = epoll_wait(outer_, &event, 1, -1) == 1;
    lock.lock();
    const bool heard = told && event.data.u64 == static_cast<std::uint64_t>(inner_);
    heard_ = heard_ || heard;
    waking_ = waking_ && (!told || heard);
}

// Wakes a thread that waits, which looks after whatever there is. All of them, once the loop has stopped.
void Loop::Core::wakeOne() {
    if (!std::exchange(waking_, true) || stopped_) {
        eventfd_write(wake_, 1);
    }
}

void Loop::Core::leave(Lock& lock) {
    if (--alive_ > 0) {
        return;
    }
    inLoop_ = true;  // the last one: no other thread is
    tInLoop = this;
    runPosted(lock);
    // What these own may own the loop.
    const auto timers = std::exchange(timers_, {});
    const auto watches = std::exchange(watches_, {});
    std::vector<std::deque<Task>> tasks;
    for (const auto& lane : lanes_) {
        tasks.push_back(std::exchange(lane->tasks, {}));
    }
    lock.unlock();
}

// --- The loop

void Loop::Core::turn(Lock& lock) {
    inLoop_ = true;
    tInLoop = this;
    bool listens = true;
    while (!stopped_ && (heard_ || !posted_.empty())) {
        if (std::exchange(heard_, false)) {
            listens = false;
            hear(lock);
        }
        runPosted(lock);
    }
    if (!listens) {
        Change(outer_, inner_, EPOLLIN | EPOLLONESHOT, static_cast<std::uint64_t>(inner_));
    }
    tInLoop = nullptr;
    inLoop_ = false;
    handedOver_ = 0;
}

void Loop::Core::hear(Lock& lock) {
    constexpr int kMost = 16;  // what is left is told again
    std::array<epoll_event, kMost> events{};
    lock.unlock();
    const int count = epoll_wait(inner_, events.data(), kMost, 0);
    lock.lock();
    for (int i = 0; i < count; ++i) {
        const std::uint64_t id = events.at(static_cast<std::size_t>(i)).data.u64;
        if (id == kTimer) {
            runTimers(lock);
        } else if (const auto watch = watches_.find(id); watch != watches_.end()) {
            auto ready = watch->second;
            lock.unlock();
            RunNoThrow(*ready);
            ready.reset();
            lock.lock();
        }
    }
}

void Loop::Core::runTimers(Lock& lock) {
    const auto now = Clock::now();
    while (!stopped_ && !timers_.empty() && timers_.begin()->first <= now) {
        auto timer = timers_.extract(timers_.begin());
        lock.unlock();
        RunNoThrow(timer.mapped());
        timer = {};
        lock.lock();
    }
    if (!timers_.empty()) {
        setTimer(timers_.begin()->first);
    }
}

void Loop::Core::runPosted(Lock& lock) {
    auto tasks = std::exchange(posted_, {});
    lock.unlock();
    for (; !tasks.empty(); tasks.pop_front()) {
        RunNoThrow(tasks.front());
    }
    lock.lock();
}

void Loop::Core::setTimer(Clock::time_point time) {
    const auto since = std::max<Clock::duration>(time.time_since_epoch(), std::chrono::nanoseconds(1));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    itimerspec spec{};
    spec.it_value = {seconds.count(), std::chrono::nanoseconds(since - seconds).count()};
    timerfd_settime(timer_, TFD_TIMER_ABSTIME, &spec, nullptr);
}

void Loop::Core::post(Task task) {
    const std::lock_guard lock(mutex_);
    if (!stopped_) {
        posted_.push_back(std::move(task));
        if (!inLoop_) {
            wakeOne();
        }
    }
}

void Loop::Core::at(Clock::time_point time, Task task) {
    const std::lock_guard lock(mutex_);
    if (!stopped_) {
        const auto timer = timers_.emplace(time, std::move(task));
        if (timer == timers_.begin()) {
            setTimer(time);
        }
    }
}

Loop::WatchId Loop::Core::watch(int descriptor, Task ready) {
    const std::lock_guard lock(mutex_);
    const WatchId id = ++lastWatch_;
    if (Add(inner_, descriptor, EPOLLIN, id) < 0) {
        return 0;
    }
    watches_.emplace(id, std::make_shared<const Task>(std::move(ready)));
    return id;
}

void Loop::Core::wantToWrite(WatchId id, int descriptor, bool wanted) {
    Change(inner_, descriptor, EPOLLIN | (wanted ? EPOLLOUT : 0U), id);
}

void Loop::Core::unwatch(WatchId id, int descriptor) {
    epoll_ctl(inner_, EPOLL_CTL_DEL, descriptor, nullptr);
    std::shared_ptr<const Task> ready;  // destroyed without the mutex
    const std::lock_guard lock(mutex_);
    if (const auto watch = watches_.extract(id)) {
        ready = watch.mapped();
    }
}

void Loop::Core::stop() {
    std::vector<std::thread> threads;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(stopped_, true)) {
            return;
        }
        threads.swap(threads_);
        Change(outer_, wake_, EPOLLIN, static_cast<std::uint64_t>(wake_));
        wakeOne();
    }
    for (std::thread& thread : threads) {
        if (tLoop == this) {
            thread.detach();
        } else {
            thread.join();
        }
    }
}

// --- Lanes

void Loop::Core::addLane(const std::shared_ptr<Lane::State>& lane) {
    const std::lock_guard lock(mutex_);
    if (!stopped_) {
        addFirstThread();
        lanes_.push_back(lane);
    }
}

void Loop::Core::post(Lane::State& lane, Task task) {
    const std::lock_guard lock(mutex_);
    if (stopped_ || lane.closed) {
        return;
    }
    lane.tasks.push_back(std::move(task));
    // Who is in the loop looks after the first itself when it leaves; and who begins one wakes the next.
    if (tInLoop == this ? ++handedOver_ == 2 : lane.mayBegin()) {
        wakeOne();
    }
}

void Loop::Core::after(std::chrono::nanoseconds delay, const std::shared_ptr<Lane::State>& lane, Task task) {
    std::uint64_t id = 0;
    {
        const std::lock_guard lock(mutex_);
        if (stopped_ || lane->closed) {
            return;
        }
        id = ++lane->lastDelayed;
        lane->delayed.emplace(id, std::move(task));
    }
    at(Clock::now() + delay, [this, weak = std::weak_ptr(lane), id] {
        const auto alive = weak.lock();
        Lock lock(mutex_);
        if (auto delayed = alive ? alive->delayed.extract(id) : decltype(alive->delayed)::node_type()) {
            lock.unlock();
            post(*alive, std::move(delayed.mapped()));
        }
    });
}

// One thread is left for the loop, and one for each other lane that has none.
bool Loop::Core::hasThreadFor(const Lane::State& lane) const {
    const auto others = std::count_if(lanes_.begin(), lanes_.end(), [&](const auto& other) {
        return other.get() != &lane && other->running == 0 && !other->closed;
    });
    return alive_ > running_ + 1 + static_cast<std::size_t>(others);
}

std::shared_ptr<Lane::State> Loop::Core::next() {
    for (const auto& lane : lanes_) {
        if (lane->mayBegin() && (hasThreadFor(*lane) || addThread())) {
            return lane;
        }
    }
    return nullptr;
}

bool Loop::Core::runTask(Lock& lock) {
    const auto lane = next();
    if (!lane) {
        return false;
    }
    Task task = std::move(lane->tasks.front());
    lane->tasks.pop_front();
    ++lane->running;
    ++running_;
    if (std::any_of(lanes_.begin(), lanes_.end(), [](const auto& other) { return other->mayBegin(); })) {
        wakeOne();
    }
    lock.unlock();
    tLane = lane.get();
    RunNoThrow(task);
    task = nullptr;  // while what it owns is destroyed, the thread is not idle
    tLane = nullptr;
    lock.lock();
    --running_;
    --lane->running;
    if (lane->closed) {
        taskEnded_.notify_all();
    }
    return true;
}

void Loop::Core::close(Lane::State& lane) {
    const std::lock_guard lock(mutex_);
    lane.closed = true;
}

void Loop::Core::stop(const std::shared_ptr<Lane::State>& lane) {
    std::deque<Task> tasks;  // what these own may own the lane
    std::map<std::uint64_t, Task> delayed;
    Lock lock(mutex_);
    lane->closed = true;
    tasks.swap(lane->tasks);
    delayed.swap(lane->delayed);
    const std::size_t own = tLane == lane.get() ? 1 : 0;
    taskEnded_.wait(lock, [&] { return lane->running <= own; });
    std::erase(lanes_, lane);
}

Lane::Lane(const Loop& loop, std::size_t mostTasks)
    : loop_(loop.core_), state_(std::make_shared<State>(mostTasks)) {
    loop_->addLane(state_);
}

Lane::~Lane() {
    stop();
}

void Lane::post(Task task) {
    loop_->post(*state_, std::move(task));
}

void Lane::after(std::chrono::nanoseconds delay, Task task) {
    loop_->after(delay, state_, std::move(task));
}

void Lane::close() {
    loop_->close(*state_);
}

void Lane::stop() {
    loop_->stop(state_);
}

// --- Loop

Loop::Loop() : core_(std::make_shared<Core>()) {
    core_->addFirstThread();
}

Loop::~Loop() {
    stop();
}

void Loop::post(Task task) {
    core_->post(std::move(task));
}

void Loop::at(Clock::time_point time, Task task) {
    core_->at(time, std::move(task));
}

Loop::WatchId Loop::watch(int descriptor, Task ready) {
    return core_->watch(descriptor, std::move(ready));
}

void Loop::wantToWrite(WatchId id, int descriptor, bool wanted) {
    core_->wantToWrite(id, descriptor, wanted);
}

void Loop::unwatch(WatchId id, int descriptor) {
    core_->unwatch(id, descriptor);
}

void Loop::stop() {
    core_->stop();
}

}  // namespace cmn::bus
