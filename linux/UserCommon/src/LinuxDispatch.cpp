#include "linux_usercommon/LinuxDispatch.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include "LinuxSemaphore.h"
#include "QtTaskQueue.h"

namespace cmn {

namespace {

unsigned UsualThreads() {
    return std::max(LinuxDispatch::kDefaultThreads, std::thread::hardware_concurrency());
}

}  // namespace

LinuxDispatch::LinuxDispatch(unsigned slowThreads, std::shared_ptr<bus::Loop> loop)
    : ownLoop_(!loop),
      loop_(ownLoop_ ? std::make_shared<bus::Loop>() : std::move(loop)),
      normal_(*loop_, UsualThreads()),
      high_(*loop_, UsualThreads()),
      quick_(std::make_shared<bus::Lane>(*loop_, UsualThreads())),
      slow_(std::make_shared<bus::Lane>(*loop_, slowThreads)),
      semaphores_(std::make_shared<SemaphoreRoom>()),
      main_(std::make_shared<QtTaskQueue>()) {}

LinuxDispatch::~LinuxDispatch() {
    main_->stop();
}

void LinuxDispatch::async(QueuePriority priority, Task task) {
    laneFor(priority).post(std::move(task));
}

void LinuxDispatch::after(std::chrono::nanoseconds delay, QueuePriority priority, Task task) {
    laneFor(priority).after(delay, std::move(task));
}

void LinuxDispatch::asyncMain(Task task) {
    main_->post(std::move(task));
}

std::shared_ptr<Semaphore> LinuxDispatch::createSemaphore(long count) {
    return std::make_shared<LinuxSemaphore>(semaphores_, count);
}

std::shared_ptr<SerialQueue> LinuxDispatch::createSerialQueue() {
    return std::make_shared<SerialQueue>([quick = quick_, slow = slow_](Lane lane, Task task) {
        (lane == Lane::slow ? *slow : *quick).post(std::move(task));
    });
}

void LinuxDispatch::stop() {
    const std::array<bus::Lane*, 4> lanes{&high_, &normal_, slow_.get(), quick_.get()};
    for (bus::Lane* const lane : lanes) {
        lane->close();
    }
    semaphores_->close();
    main_->stop();
    for (bus::Lane* const lane : lanes) {
        lane->stop();
    }
    if (ownLoop_) {
        loop_->stop();
    }
}

}  // namespace cmn
