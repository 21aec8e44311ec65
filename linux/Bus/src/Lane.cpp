#include "linux_bus/Lane.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "LoopCore.h"
#include "common/log.h"

namespace cmn::bus {

// --- What a thread does

// One is left for the loop, and one for each other lane that has none.
bool Loop::Core::provideThreadFor(const Lane::State& lane) {
    const auto others = std::count_if(lanes.begin(), lanes.end(), [&](const auto& other) {
        return other.get() != &lane && other->running == 0 && !other->closed;
    });
    if (alive > running + 1 + static_cast<std::size_t>(others)) {
        return true;
    }
    try {
        addThread();
        complained = false;
        return true;
    } catch (const std::system_error& e) {
        if (!std::exchange(complained, true)) {
            TLOG_WARN("Tasks have to make do with {} threads: {}", alive, e.what());
        }
        return false;
    }
}

void Loop::Core::hand(Lane::State& lane, Task&& task) {
    if (stopped || lane.closed) {
        return;
    }
    lane.tasks.push_back(std::move(task));
    if (tHere.inLoop != this && !keeps() && lane.mayBegin()) {
        wakeOne();  // else this thread sees it itself
    }
}

void Loop::Core::wakeForTasks() {
    if (std::any_of(lanes.begin(), lanes.end(), [](const auto& lane) { return lane->mayBegin(); })) {
        wakeOne();
    }
}

bool Loop::Core::runTask(Lock& lock) {
    const auto found = std::find_if(lanes.begin(), lanes.end(), [this](const auto& lane) {
        return lane->mayBegin() && provideThreadFor(*lane);
    });
    if (found == lanes.end()) {
        return false;
    }
    const auto lane = *found;
    Lane::Task task = std::move(lane->tasks.front());
    lane->tasks.pop_front();
    ++lane->running;
    ++running;
    if (keeps()) {
        limitKeeping();
    } else {
        wakeForTasks();
    }
    lock.unlock();
    tHere.inLane = lane.get();
    try {
        task();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
    task = nullptr;  // while what it owns is destroyed, the thread is not idle
    tHere.inLane = nullptr;
    lock.lock();
    --running;
    --lane->running;
    if (lane->closed) {
        taskEnded.notify_all();
    }
    return true;
}

// --- From any thread

Lane::Lane(const Loop& loop, std::size_t mostTasks)
    : loop_(loop.core_), state_(std::make_shared<State>(State{std::max<std::size_t>(mostTasks, 1)})) {
    const std::lock_guard lock(loop_->mutex);
    if (!loop_->stopped) {
        loop_->addThread();
        loop_->lanes.push_back(state_);
    }
}

Lane::~Lane() {
    stop();
}

void Lane::post(Task task) {
    const std::lock_guard lock(loop_->mutex);
    loop_->hand(*state_, std::move(task));
}

void Lane::after(std::chrono::nanoseconds delay, Task task) {
    const std::lock_guard lock(loop_->mutex);
    if (loop_->stopped || state_->closed) {
        return;
    }
    const std::uint64_t id = ++state_->lastDelayed;
    state_->delayed.emplace(id, std::move(task));
    loop_->schedule(Loop::Clock::now() + delay, [loop = loop_.get(), lane = std::weak_ptr(state_), id] {
        const std::lock_guard inTime(loop->mutex);
        const auto alive = lane.lock();
        if (auto due = alive ? alive->delayed.extract(id) : decltype(alive->delayed)::node_type()) {
            loop->hand(*alive, std::move(due.mapped()));
        }
    });
}

void Lane::close() {
    const std::lock_guard lock(loop_->mutex);
    state_->closed = true;
}

void Lane::stop() {
    std::deque<Task> tasks;  // what these own may own the lane
    std::map<std::uint64_t, Task> delayed;
    Loop::Core::Lock lock(loop_->mutex);
    state_->closed = true;
    tasks.swap(state_->tasks);
    delayed.swap(state_->delayed);
    const std::size_t own = tHere.inLane == state_.get() ? 1 : 0;
    loop_->taskEnded.wait(lock, [&] { return state_->running <= own; });
    std::erase(loop_->lanes, state_);
}

}  // namespace cmn::bus
