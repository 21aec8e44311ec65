#pragma once

#include <QCoreApplication>
#include <QSocketNotifier>
#include <memory>

namespace useragent {

// From now on SIGTERM ends the agent in order: the event loop, or the start-up before there is one. The first
// thing that the program does; may be called again. Throws std::system_error.
void HandleSigterm();

// While there is nothing to end in order.
void LeaveSigtermToTheSystem();

// Lets `StopCurrentRunLoop` end the application's event loop: a signal handler may only write to a
// descriptor, so the loop watches one. One per process, after `HandleSigterm`; lives on the main thread. A
// signal that came before ends the loop as soon as it runs.
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
