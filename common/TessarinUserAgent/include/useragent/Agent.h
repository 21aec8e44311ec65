#pragma once

#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/proto_settings.h"
#include "useragent/Accessibility.h"
#include "useragent/AgentStatus.h"
#include "useragent/WindowList.h"
#include "usercommon/Dispatch.h"
#include "usercommon/XPCConnection.h"

namespace useragent {

// True from program load until SIGTERM; written by nothing else.
extern std::atomic<bool> g_run;

// Clears `g_run` and stops the run loop of the thread that received the signal. Async-signal-safe.
extern "C" void SigtermHandler(int signalNumber);

// Stops the calling thread's run loop from a signal handler; provided by each platform end.
void StopCurrentRunLoop();

// What the log is set up with, in the order in which it is asked: of the running program. Tests put their own
// in its place. Main thread.
class AgentFacts {
 public:
    virtual ~AgentFacts() = default;

    virtual cmn::proto::TSettings settings();  // throws as cmn::proto::GetSettings does
    virtual std::filesystem::path executablePath();
    virtual std::filesystem::path userLogFolder();  // where the log goes when it cannot lie beside the bundle
    virtual std::optional<std::string> bundleShortVersion();  // "CFBundleShortVersionString"
};

// Everything the start-up asks of the system, in the order in which it asks. Main thread.
class AgentPlatform : public AgentFacts {
 public:
    virtual std::shared_ptr<Accessibility> accessibility() = 0;  // made at the first call, then the same
    virtual std::shared_ptr<WindowList> windowList() = 0;
    virtual std::shared_ptr<cmn::Dispatch> dispatch() = 0;  // made at the first call, then the same
    virtual std::shared_ptr<cmn::XPCTransport> transport() = 0;

    virtual std::shared_ptr<cmn::Semaphore> pollingPause() = 0;  // see `WatcherPorts`

    // Runs the application's main loop; returns its exit code. `status` tells how the watching is.
    virtual int runApplication(StatusSource status) = 0;
};

// The whole life of the agent; returns the process's exit code: that of the main loop, or 0 when start-up
// failed. Throws nothing.
int RunAgent(AgentPlatform& platform);

// For a failure that kept the platform from being made: tells it in the log as a failure of the start-up, and
// returns the exit code of one. Throws nothing.
int ReportStartFailure(AgentFacts& facts, const std::exception_ptr& failure);

}  // namespace useragent
