#include "linux_usercommon/LinuxDispatch.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include "LinuxSemaphore.h"
#include "QtTaskQueue.h"

namespace cmn {

namespace {

std::shared_ptr<TaskPool> CreatePool() {
    return std::make_shared<TaskPool>(
        std::max(LinuxDispatch::kDefaultThreads, std::thread::hardware_concurrency()));
}

}  // namespace

LinuxDispatch::LinuxDispatch(unsigned slowThreads)
    : normal_(CreatePool()),
      high_(CreatePool()),
      quick_(CreatePool()),
      slow_(std::make_shared<TaskPool>(slowThreads)),
      semaphores_(std::make_shared<SemaphoreRoom>()),
      main_(std::make_shared<QtTaskQueue>()) {}

LinuxDispatch::~LinuxDispatch() {
    main_->stop();
}

void LinuxDispatch::async(QueuePriority priority, Task task) {
    poolFor(priority).post(std::move(task));
}

void LinuxDispatch::after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) {
    poolFor(priority).after(delay, std::move(task));
}

void LinuxDispatch::asyncMain(Task task) {
    main_->post(std::move(task));
}

std::shared_ptr<Semaphore> LinuxDispatch::createSemaphore(long count) {
    return std::make_shared<LinuxSemaphore>(semaphores_, count);
}

std::shared_ptr<SerialQueue> LinuxDispatch::createSerialQueue() {
    return std::make_shared<SerialQueue>(quick_, slow_);
}

void LinuxDispatch::stop() {
    const std::array<TaskPool*, 4> pools{high_.get(), normal_.get(), slow_.get(), quick_.get()};
    for (TaskPool* const pool : pools) {
        pool->close();
    }
    semaphores_->close();
    main_->stop();
    for (TaskPool* const pool : pools) {
        pool->stop();
    }
}

}  // namespace cmn
