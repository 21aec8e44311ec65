#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "linux_bus/Connection.h"
#include "linux_bus/Object.h"

namespace useragent {

// Where the session bus is, and the thread on which its connections live.
struct SessionBusPlace {
    std::shared_ptr<cmn::bus::Loop> loop;
    std::string address;
    std::chrono::milliseconds retryPause{3000};  // after a loss or a failure, before the next attempt
};

// A connection to the session bus that is made again, for ever, when it was lost or could not be made. Lives
// on one thread and tells everything in that thread's event loop. What has `Wait` in its name waits, nothing
// else does.
class SessionBus {
 public:
    using Reply = cmn::bus::Connection::Reply;

    struct Events {
        std::function<void()> ready;                   // by turns with `lost`
        std::function<void(const std::string&)> lost;  // with the reason; also when it could not be made
    };

    // Questions about the objects are answered on this thread, too.
    SessionBus(SessionBusPlace place, Events events,
               std::shared_ptr<const cmn::bus::Objects> served = nullptr);
    // Nothing is told any more.
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    // Whether it is there; waits for the attempt that is under way.
    bool waitUntilReady(std::chrono::milliseconds patience);
    // Why it is not there; empty when there is nothing to connect to.
    std::string failure() const;
    // What the events have told last.
    enum class State { unknown, ready, lost };
    State state() const { return state_; }

    // The one of the moment; of no use while it is not ready.
    cmn::bus::Connection& connection() { return *connection_; }

    // `done` is called unless this object ends before; it may be let go of on any thread.
    void call(cmn::bus::Message message, std::chrono::milliseconds timeout,
              std::function<void(const Reply&)> done);
    // Until the end of the connection of the moment, or of what it returns.
    std::shared_ptr<cmn::bus::Subscription> subscribe(const std::string& rule,
                                                      std::function<void(const cmn::bus::Message&)> heard);
    template <typename... T>
    Reply askBusAndWait(const char* member, std::chrono::milliseconds timeout, const T&... arguments) {
        return connection_->callAndWait(connection_->makeCall(cmn::bus::kBusName, cmn::bus::kBusPath,
                                                              cmn::bus::kBusName, member, arguments...),
                                        cmn::bus::Clock::now() + timeout);
    }
    template <typename... T>
    void emitSignal(const char* path, const char* interface, const char* member, const T&... arguments) {
        cmn::bus::Message signal = connection_->newSignal(path, interface, member);
        if (signal && signal.append(arguments...)) {
            connection_->send(signal);
        }
    }

    // Whether questions are taken; they are, at first. While they are not, also those that were not looked at
    // yet are told that there is no such object.
    void takeQuestions(bool take);

 private:
    struct Inbox;

    void open();
    void lost(const std::string& why);
    void answerNext();
    bool isPossible() const;

    const SessionBusPlace place_;
    const Events events_;
    const std::shared_ptr<const cmn::bus::Objects> served_;
    const std::shared_ptr<Inbox> inbox_;
    std::shared_ptr<cmn::bus::Connection> connection_;
    State state_ = State::unknown;
};

}  // namespace useragent
