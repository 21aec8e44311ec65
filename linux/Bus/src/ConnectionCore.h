#pragma once

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Wire.h"
#include "linux_bus/Connection.h"

namespace cmn::bus {

// What a connection is made of. Everything is guarded by the wire's mutex but what belongs to the loop's
// thread. What happens while the mutex is held is told after it was given back.
class ConnectionCore final : public Connection, public std::enable_shared_from_this<ConnectionCore> {
 public:
    // Calls of the bus itself do not wait behind those of others; whether it is alive can always be asked.
    enum class Turn { usual, urgent, always };

    ConnectionCore(std::shared_ptr<Loop> loop, Options options, Connection::Events events);
    ConnectionCore(const ConnectionCore&) = delete;
    ConnectionCore& operator=(const ConnectionCore&) = delete;
    ~ConnectionCore() = default;

    // In the loop's thread.
    void connectNext(std::string failure);

    void drop();

    void close(const std::string& why) override;
    bool isReady() const override;
    std::string uniqueName() const override;
    std::optional<uid_t> busUser() const override;
    Message newCall(const std::string& destination, const std::string& path, const std::string& interface,
                    const std::string& member, AutoStart autoStart) override;
    Message newSignal(const std::string& path, const std::string& interface,
                      const std::string& member) override;
    CallId call(Message message, Deadline deadline, Done done) override {
        return call(std::move(message), deadline, std::move(done), Turn::usual);
    }
    CallId call(Message message, Deadline deadline, Done done, Turn turn);
    void cancel(CallId id) override;
    void cancelAll() override;
    void failAll(const Error& error) override;
    bool send(const Message& message) override;
    std::shared_ptr<Subscription> subscribe(
        const std::string& rule, std::function<void(const Message&)> handler,
        std::function<void(const std::optional<Error>&)> installed) override;
    void unsubscribe(Subscription::State& state);
    void askBusWith(Message question, Done done) override {
        call(std::move(question), Clock::now() + options_.answerDeadline, std::move(done), Turn::urgent);
    }

    template <typename Make>
    Message newMessage(Make make) {
        const std::lock_guard lock(wire_->mutex);
        sd_bus_message* raw = nullptr;
        return wire_->bus != nullptr && make(wire_->bus, &raw) >= 0 ? Message(wire_, raw) : Message();
    }

    const std::shared_ptr<Loop>& loop() const { return loop_; }

 private:
    enum class State { connecting, ready, ended };
    using Told = std::vector<std::function<void()>>;

    struct Pending {
        ConnectionCore* core;
        CallId id;
        Deadline deadline;
        Done done;
        Message message;              // while it waits for its turn
        sd_bus_slot* slot = nullptr;  // once it is sent
    };
    using Taken = std::unique_ptr<Pending>;
    using Failing = std::function<void(const Error&)>;  // what waits for an answer that does not come

    static int onMessage(sd_bus_message* message, void* core, sd_bus_error* error);
    static int onReply(sd_bus_message* message, void* pending, sd_bus_error* error);
    static int onSignal(sd_bus_message* message, void* state, sd_bus_error* error);
    static int onInstalled(sd_bus_message* message, void* state, sd_bus_error* error);

    // In the loop's thread.
    int connect(const std::string& address);
    void turn();
    int processOne();
    void lookAtTheClock();
    void askWhetherAlive();
    void lost(const std::string& why);
    // What a handler throws ends here. Nothing is told any more once nobody has the connection.
    void tell(const std::function<void()>& what) const;

    // With the mutex held.
    Deadline nextDeadline() const;
    Deadline nextTick() const;
    std::optional<Error> start(Pending& pending, const Message& message, Turn turn);
    void startWaiting();
    Taken take(CallId id);
    std::vector<Taken> takeAll();
    std::vector<Failing> end();
    bool hasRoom(std::size_t bytes);
    void noteQueued(std::size_t bytes);
    std::uint64_t queuedMessages() const;
    void becomeReady();
    void closeBus();
    void arm();
    void awaitWriting(bool wanted);
    void awaitTime(Deadline time);

    void wake();
    static Failing failing(Taken call);
    void fail(std::vector<Failing> waiting, const Error& error);

    const std::shared_ptr<Loop> loop_;
    const Options options_;
    const Connection::Events events_;
    const std::shared_ptr<Wire> wire_ = std::make_shared<Wire>();

    // Of the loop's thread.
    std::vector<std::string> addresses_;  // those that are left, the next one last
    std::string address_;
    Deadline nextLook_ = Deadline::max();
    std::uint64_t heard_ = 0;  // how often the bus gave a sign of life
    std::uint64_t heardAtLook_ = 0;

    std::atomic<bool> dropped_{false};

    // Guarded by the mutex.
    State state_ = State::connecting;
    Deadline connectBy_ = Deadline::max();
    Loop::WatchId watch_ = 0;
    bool awaitsWriting_ = false;
    Deadline awaited_ = Deadline::max();
    Loop::TimerId timer_;
    std::string uniqueName_;
    std::optional<uid_t> busUser_;
    std::map<CallId, Taken> pending_;
    std::set<std::pair<Deadline, CallId>> deadlines_;
    std::set<CallId> waiting_;  // in the order in which they came
    std::size_t waitingBytes_ = 0;
    std::size_t inFlight_ = 0;
    CallId lastCall_ = 0;
    std::deque<std::size_t> queued_;  // bytes of the messages that the socket did not take yet
    std::size_t queuedBytes_ = 0;
    std::vector<std::weak_ptr<Subscription::State>> subscriptions_;
    Told happened_;
};

struct Subscription::State : std::enable_shared_from_this<State> {
    std::weak_ptr<ConnectionCore> core;
    std::function<void(const Message&)> handler;
    std::function<void(const std::optional<Error>&)> installed;  // until it was told; guarded as the slot is
    std::string sender;                                          // of the rule; empty when it names none
    ConnectionCore* owner = nullptr;                             // while there is a slot
    sd_bus_slot* slot = nullptr;
    std::atomic<bool> active{true};
};

// What a reply says.
Connection::Reply ToReply(Message message);

// The system's text for a negative errno.
std::string Describe(int negativeErrno);

}  // namespace cmn::bus
