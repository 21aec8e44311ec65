#include "linux_usercommon/LinuxDispatch.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "LinuxSemaphore.h"
#include "QtTaskQueue.h"

namespace cmn {

namespace {

std::shared_ptr<TaskPool> CreatePool(unsigned fewestThreads) {
    return std::make_shared<TaskPool>(std::max(fewestThreads, std::thread::hardware_concurrency()));
}

}  // namespace

LinuxDispatch::LinuxDispatch(unsigned fewestThreads)
    : normal_(CreatePool(fewestThreads)),
      high_(CreatePool(kDefaultThreads)),
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
    return std::make_shared<SerialQueue>(normal_);
}

void LinuxDispatch::stop() {
    semaphores_->close();
    main_->stop();
    high_->stop();
    normal_->stop();
}

}  // namespace cmn
