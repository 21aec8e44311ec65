#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

#include "HostPlatform.h"
#include "common/exceptions.h"
#import "macos_usercommon/MacDispatch.h"
#import "macos_usercommon/MacXPCTransport.h"
#include "xpccommon/FinderExtensionProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

namespace host {

namespace {

// A launch daemon: launchd has the names of the services, starts the host with the system and says nothing
// about its listeners.
class MacHostPlatform final : public HostPlatform {
 public:
    MacHostPlatform() {
        std::signal(SIGPIPE, SIG_IGN);  // a reader of the events that goes away does not end the host
        for (const int signal : {SIGTERM, SIGINT}) {
            std::signal(signal, SIG_IGN);  // they are told to the main queue all the same
            dispatch_source_t const source = dispatch_source_create(
                DISPATCH_SOURCE_TYPE_SIGNAL, static_cast<uintptr_t>(signal), 0, dispatch_get_main_queue());
            dispatch_source_set_event_handler(source, ^{
              end(0);
            });
            dispatch_resume(source);
            sources_.push_back(source);
        }
    }

    void connect(HostBus bus, ListenerHandler handler) override {
        if (bus != HostBus::system) {
            throw_with_trace(std::runtime_error("There is no session bus here: launchd has the services"));
        }
        handler_ = std::move(handler);
    }
    std::string place() const override { return "system"; }
    std::shared_ptr<cmn::Dispatch> dispatch() override { return dispatch_; }
    std::shared_ptr<cmn::XPCTransport> transport() override { return transport_; }
    void ask(std::function<void()> question) override {
        dispatch_group_async(questions_, dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), ^{
          @autoreleasepool {
              question();
          }
        });
    }
    void started() override {
        for (const char* service :
             {cmn::kUserAgentMachServiceName, cmn::kFinderExtensionXPCMachServiceName}) {
            handler_({service, ListenerState::listening, {}});
        }
    }
    void stop() override { dispatch_group_wait(questions_, DISPATCH_TIME_FOREVER); }

    int run(InputHandler input) override {
        dispatch_source_t const source =
            dispatch_source_create(DISPATCH_SOURCE_TYPE_READ, STDIN_FILENO, 0, dispatch_get_main_queue());
        dispatch_source_set_event_handler(source, ^{
          std::array<char, 4096> buffer{};
          const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
          if (count > 0) {
              input(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
          } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
              dispatch_source_cancel(source);
              input(std::nullopt);
          }
        });
        dispatch_resume(source);
        while (!ended_) {
            @autoreleasepool {
                CFRunLoopRunInMode(kCFRunLoopDefaultMode, kLongestTurn, YES);
            }
        }
        dispatch_source_cancel(source);
        return status_;
    }
    void end(int status) override {
        ended_ = true;
        status_ = status;
        CFRunLoopStop(CFRunLoopGetMain());
    }

 private:
    static constexpr double kLongestTurn = 3600;  // seconds

    const std::shared_ptr<cmn::MacDispatch> dispatch_ = std::make_shared<cmn::MacDispatch>();
    const std::shared_ptr<cmn::MacXPCTransport> transport_ = std::make_shared<cmn::MacXPCTransport>();
    dispatch_group_t const questions_ = dispatch_group_create();
    std::vector<dispatch_source_t> sources_;  // each tells for as long as it is held
    ListenerHandler handler_;
    bool ended_ = false;
    int status_ = 0;
};

}  // namespace

std::unique_ptr<HostPlatform> CreateHostPlatform(int& /*argc*/, char** /*argv*/) {
    return std::make_unique<MacHostPlatform>();
}

}  // namespace host
