#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux_bus/Loop.h"
#include "linux_bus/Message.h"
#include "linux_bus/Question.h"
#include "linux_bus/Result.h"
#include "linux_bus/WellKnown.h"

namespace cmn::bus {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

struct Options {
    std::string address;                              // an address list; only local sockets are used
    std::chrono::milliseconds connectDeadline{4000};  // for each address, until the bus knows us
    std::chrono::milliseconds answerDeadline{5000};   // for the bus's own answers
    std::chrono::milliseconds livenessPause{10'000};  // between looks whether a quiet bus is alive
    // Calls that are not answered yet; more wait for their turn. Buses limit them, the strictest known to
    // 128.
    std::size_t mostInFlight = 100;
};

// A peer of a bus, as the bus vouches for it.
struct Credentials {
    uid_t userID = 0;
    pid_t processID = 0;  // a hint: process ids are used again
};

// Hears signals until it is destroyed or the connection ends. A handler that is running then may still end.
class Subscription {
 public:
    struct State;

    explicit Subscription(std::shared_ptr<State> state);
    ~Subscription();
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

 private:
    const std::shared_ptr<State> state_;
};

// One private connection to a message bus, in one uninterrupted stretch: when it is lost, it is of no further
// use, and a new one may be opened. All operations may be called from any thread; none but `callAndWait`
// waits. Everything is told in the loop's thread, where nothing may wait. Arguments are written, and answers
// are best read, by whoever wants them: large ones take long, and the loop serves all.
class Connection {
 public:
    using Reply = Result<Message>;
    using Done = std::function<void(const Reply&)>;
    using CallId = std::uint64_t;

    struct Events {
        std::function<void()> ready;                   // from now on calls are taken
        std::function<void(const std::string&)> lost;  // once, with the reason; also when it never got ready
        std::function<void(Question)> asked;           // a method call; without this the library refuses them
    };

    // An absent service may be started by the bus, or stays absent.
    enum class AutoStart { no, yes };

    // Begins to connect.
    static std::shared_ptr<Connection> open(std::shared_ptr<Loop> loop, Options options, Events events);
    // The calling thread waits, which must not be the loop's, until it is ready or cannot be had.
    static Result<std::shared_ptr<Connection>> openAndWait(std::shared_ptr<Loop> loop, Options options);
    // Who lets go of it ends it as with `close`, but waiting calls are dropped without a word, also those
    // that failed and were not told yet. A handler that is running then may still end.
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Ends it: waiting calls fail, then nothing more is told.
    virtual void close(const std::string& why) = 0;

    virtual bool isReady() const = 0;
    // Under which this connection is known; empty before it is ready.
    virtual std::string uniqueName() const = 0;
    // Who listens on the bus's socket, as the system vouches for it; nothing unless it is ready.
    virtual std::optional<uid_t> busUser() const = 0;

    // A method call or signal to be sent. None when there is no connection, or a name is malformed.
    virtual Message newCall(const std::string& destination, const std::string& path,
                            const std::string& interface, const std::string& member,
                            AutoStart autoStart = AutoStart::no) = 0;
    virtual Message newSignal(const std::string& path, const std::string& interface,
                              const std::string& member) = 0;
    // The same with arguments; none also when they are too large.
    template <typename... T>
    Message makeCall(const std::string& destination, const std::string& path, const std::string& interface,
                     const std::string& member, const T&... arguments) {
        Message message = newCall(destination, path, interface, member);
        return message && message.append(arguments...) ? message : Message();
    }

    // `done` is called once, unless the call is cancelled or this object is destroyed before: with the
    // answer, the error that came instead, or an error of this end (`error::kTimeout`, `kDisconnected`,
    // `kLimitsExceeded`). An empty message fails. A `done` that owns this object keeps it until then.
    virtual CallId call(Message message, Deadline deadline, Done done) = 0;
    virtual void cancel(CallId id) = 0;
    // All that wait; or they fail now.
    virtual void cancelAll() = 0;
    virtual void failAll(const Error& error) = 0;
    // The calling thread waits, which must not be the loop's.
    Reply callAndWait(Message message, Deadline deadline);
    // All are sent before one is answered; the answers are in their order.
    std::vector<Reply> callAndWait(std::vector<Message> messages, Deadline deadline);
    // Sends what wants no answer. False when the connection cannot take it.
    virtual bool send(const Message& message) = 0;

    // `rule` is a match rule; a sender in it must be a unique name or the bus itself. `installed` hears
    // whether the bus took it, which it did not when the connection ends before.
    virtual std::shared_ptr<Subscription> subscribe(
        const std::string& rule, std::function<void(const Message&)> handler,
        std::function<void(const std::optional<Error>&)> installed = {}) = 0;

    // Calls of the bus itself.
    template <typename... T>
    void askBus(const char* member, const Done& done, const T&... arguments) {
        askBusWith(makeCall(kBusName, kBusPath, kBusName, member, arguments...), done);
    }
    // Nothing when nobody has the name.
    void askOwner(const std::string& name,
                  std::function<void(const Result<std::optional<std::string>>&)> done);
    void askCredentials(const std::string& name, std::function<void(const Result<Credentials>&)> done);

 protected:
    Connection() = default;
    ~Connection() = default;

 private:
    // Such a call does not wait behind others.
    virtual void askBusWith(Message call, Done done) = 0;
};

}  // namespace cmn::bus
