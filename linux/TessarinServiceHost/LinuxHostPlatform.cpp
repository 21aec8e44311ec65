#include <malloc.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include "HostPlatform.h"
#include "linux_bus/Lane.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"

namespace host {

namespace {

// So many questions can wait for the agent at the same time.
constexpr std::size_t kQuestionThreads = 8;

// So many clients can wait for a scan at the same time without holding up the others.
constexpr unsigned kRequestThreads = 32;

// From here on the signals are read from the returned descriptor. Before any thread starts: threads inherit
// this.
int BlockEndSignals() {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a reader of the events that goes away does not end the host
    return signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
}

// A message of many MiB goes back to the system as soon as it was refused: without this the allocator takes
// it for the usual size and keeps as much for the next one.
void KeepNoLargeMessages() {
    constexpr int kLargestKept = 256 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, kLargestKept);
}

ListenerState StateOf(cmn::DBusListenerState state) {
    switch (state) {
        case cmn::DBusListenerState::listening:
            return ListenerState::listening;
        case cmn::DBusListenerState::failed:
            return ListenerState::failed;
        case cmn::DBusListenerState::lost:
            return ListenerState::lost;
    }
    return ListenerState::failed;
}

// A bus and Qt's loop.
class LinuxHostPlatform final : public HostPlatform {
 public:
    LinuxHostPlatform(int& argc, char** argv, int signalDescriptor)
        : application_(argc, argv), signals_(signalDescriptor, QSocketNotifier::Read) {
        QObject::connect(&signals_, &QSocketNotifier::activated, [] { QCoreApplication::exit(0); });
    }

    void connect(HostBus bus, ListenerHandler handler) override {
        const auto listenerBus = bus == HostBus::system ? cmn::DBusBus::system : cmn::DBusBus::session;
        bus_ = bus;
        dispatch_ = std::make_shared<cmn::LinuxDispatch>(kRequestThreads);
        questions_.emplace(*dispatch_->loop(), kQuestionThreads);
        transport_ = std::make_shared<cmn::DBusXPCTransport>(
            dispatch_,
            cmn::DBusXPCOptions{.listenerBus = listenerBus,
                                .onListenerEvent = [handler = std::move(handler)](const auto& event) {
                                    handler({event.machServiceName, StateOf(event.state), event.reason});
                                }});
    }
    std::string place() const override { return bus_ == HostBus::system ? "system" : "session"; }
    std::shared_ptr<cmn::Dispatch> dispatch() override { return dispatch_; }
    std::shared_ptr<cmn::XPCTransport> transport() override { return transport_; }
    void ask(std::function<void()> question) override { questions_->post(std::move(question)); }
    void stop() override {
        transport_->stop();  // while the loop still does what that asks of it
        // Wakes the questions that wait, then lets every task end before what it uses goes.
        dispatch_->stop();
        questions_->stop();
    }

    int run(InputHandler input) override {
        QSocketNotifier notifier(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&notifier, &QSocketNotifier::activated, [&] {
            std::array<char, 4096> buffer{};
            const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
            if (count > 0) {
                input(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
            } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
                notifier.setEnabled(false);
                input(std::nullopt);
            }
        });
        return QCoreApplication::exec();
    }
    void end(int status) override { QCoreApplication::exit(status); }

 private:
    QCoreApplication application_;
    QSocketNotifier signals_;
    HostBus bus_ = HostBus::system;
    std::shared_ptr<cmn::LinuxDispatch> dispatch_;
    // Questions to the agent wait for its answer; on threads of their own they hold up nothing else.
    std::optional<cmn::bus::Lane> questions_;
    std::shared_ptr<cmn::DBusXPCTransport> transport_;
};

}  // namespace

std::unique_ptr<HostPlatform> CreateHostPlatform(int& argc, char** argv) {
    KeepNoLargeMessages();
    return std::make_unique<LinuxHostPlatform>(argc, argv, BlockEndSignals());
}

}  // namespace host
