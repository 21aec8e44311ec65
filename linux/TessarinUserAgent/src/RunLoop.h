#pragma once

#include <QCoreApplication>
#include <QSocketNotifier>
#include <memory>

namespace useragent {

// Lets `StopCurrentRunLoop` end the application's event loop: a signal handler may only write to a
// descriptor, so the loop watches one. One per process; lives on the main thread.
class RunLoopStopper {
 public:
    explicit RunLoopStopper(QCoreApplication& application);
    ~RunLoopStopper();
    RunLoopStopper(const RunLoopStopper&) = delete;
    RunLoopStopper& operator=(const RunLoopStopper&) = delete;

 private:
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace useragent
