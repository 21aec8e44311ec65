#include <systemd/sd-bus.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "ConnectionCore.h"

// The calls, messages and signals of a connection.
namespace cmn::bus {

namespace {

// What may wait here for its turn, or for the socket. The library drains a queue in square time, and knows no
// limit of bytes.
constexpr std::size_t kMostWaiting = 10'000;
constexpr std::size_t kMostQueued = 4'000;
constexpr std::size_t kMostBytes = std::size_t{64} * 1024 * 1024;

// Longest text of an error of others that is kept.
constexpr std::size_t kLongestErrorText = 4096;

std::string SenderOf(const std::string& rule) {
    constexpr std::string_view kKey = "sender='";
    const std::size_t begin = rule.find(kKey);
    if (begin == std::string::npos) {
        return {};
    }
    const std::size_t value = begin + kKey.size();
    return rule.substr(value, rule.find('\'', value) - value);
}

}  // namespace

Connection::Reply ToReply(Message message) {
    if (sd_bus_message_is_method_error(message.raw(), nullptr) <= 0) {
        return message;
    }
    const sd_bus_error* const error = sd_bus_message_get_error(message.raw());
    const std::string_view text = error->message != nullptr ? error->message : "";
    return Error{error->name, std::string(text.substr(0, kLongestErrorText))};
}

ConnectionCore::CallId ConnectionCore::call(Message message, Deadline deadline, Done done, Turn turn) {
    std::optional<Error> error;
    Taken refused;
    CallId id = 0;
    {
        const std::lock_guard lock(wire_->mutex);
        id = ++lastCall_;
        auto pending = std::make_unique<Pending>();
        pending->core = this;
        pending->id = id;
        pending->deadline = deadline;
        pending->done = std::move(done);
        if (state_ != State::ready) {
            error = Error{error::kDisconnected, "There is no connection"};
        } else if (!message) {
            error = Error{error::kLimitsExceeded, "The message is malformed or too large"};
        } else if (turn != Turn::usual || (inFlight_ < options_.mostInFlight && waiting_.empty())) {
            error = start(*pending, message, turn);
        } else if (waiting_.size() >= kMostWaiting || waitingBytes_ + message.bytes() > kMostBytes) {
            error = Error{error::kLimitsExceeded, "Too many messages are waiting"};
        } else {
            waitingBytes_ += message.bytes();
            pending->message = std::move(message);
            waiting_.insert(id);
        }
        if (error) {
            refused = std::move(pending);
        } else {
            deadlines_.emplace(deadline, id);
            pending_.emplace(id, std::move(pending));
            awaitTime(deadline);
        }
    }
    if (refused) {
        fail({failing(std::move(refused))}, *error);
    }
    return id;
}

std::optional<Error> ConnectionCore::start(Pending& pending, const Message& message, Turn turn) {
    const std::size_t bytes = message.bytes();
    if (!hasRoom(bytes) && turn != Turn::always) {
        return Error{error::kLimitsExceeded, "Too much is waiting to be sent"};
    }
    const int result =
        sd_bus_call_async(wire_->bus, &pending.slot, message.raw(), &onReply, &pending, UINT64_MAX);
    if (result < 0) {
        wake();  // it may have been the end
        return Error{error::kFailed, "The message could not be sent: " + Describe(result)};
    }
    ++inFlight_;
    noteQueued(bytes);
    return std::nullopt;
}

void ConnectionCore::startWaiting() {
    while (state_ == State::ready && inFlight_ < options_.mostInFlight && !waiting_.empty()) {
        const CallId id = *waiting_.begin();
        Pending& pending = *pending_.at(id);
        if (!hasRoom(pending.message.bytes())) {
            return;  // its turn comes when the socket has taken some
        }
        waiting_.erase(waiting_.begin());
        waitingBytes_ -= pending.message.bytes();
        if (auto error = start(pending, std::exchange(pending.message, {}), Turn::usual)) {
            fail({failing(take(id))}, *error);
        }
    }
}

ConnectionCore::Taken ConnectionCore::take(CallId id) {
    const auto found = pending_.find(id);
    if (found == pending_.end()) {
        return nullptr;
    }
    Taken call = std::move(found->second);
    pending_.erase(found);
    deadlines_.erase({call->deadline, id});
    if (call->slot != nullptr) {
        call->slot = sd_bus_slot_unref(call->slot);
        --inFlight_;
    } else if (waiting_.erase(id) > 0) {
        waitingBytes_ -= call->message.bytes();
    }
    return call;
}

void ConnectionCore::cancel(CallId id) {
    Taken call;
    const std::lock_guard lock(wire_->mutex);
    call = take(id);
    startWaiting();
}

void ConnectionCore::cancelAll() {
    std::vector<Taken> calls;
    const std::lock_guard lock(wire_->mutex);
    calls = takeAll();
}

void ConnectionCore::failAll(const Error& error) {
    std::vector<Failing> calls;
    {
        const std::lock_guard lock(wire_->mutex);
        for (Taken& call : takeAll()) {
            calls.push_back(failing(std::move(call)));
        }
    }
    fail(std::move(calls), error);
}

std::vector<ConnectionCore::Taken> ConnectionCore::takeAll() {
    std::vector<Taken> calls;
    while (!pending_.empty()) {
        calls.push_back(take(pending_.begin()->first));
    }
    return calls;
}

bool ConnectionCore::send(const Message& message) {
    const std::lock_guard lock(wire_->mutex);
    if (state_ != State::ready || !message || !hasRoom(message.bytes())) {
        return false;
    }
    // Without a place for the call's number the library marks it as one that wants no answer.
    if (sd_bus_send(wire_->bus, message.raw(), nullptr) < 0) {
        wake();  // it may have been the end
        return false;
    }
    noteQueued(message.bytes());
    return true;
}

std::uint64_t ConnectionCore::queuedMessages() const {
    std::uint64_t queued = 0;
    sd_bus_get_n_queued_write(wire_->bus, &queued);
    return queued;
}

bool ConnectionCore::hasRoom(std::size_t bytes) {
    const std::uint64_t queued = queuedMessages();
    while (queued_.size() > queued) {
        queuedBytes_ -= queued_.front();
        queued_.pop_front();
    }
    return queued < kMostQueued && queuedBytes_ + bytes <= kMostBytes;
}

void ConnectionCore::noteQueued(std::size_t bytes) {
    if (queuedMessages() > queued_.size()) {
        queued_.push_back(bytes);
        queuedBytes_ += bytes;
        awaitWriting(true);
    }
}

std::shared_ptr<Subscription> ConnectionCore::subscribe(
    const std::string& rule, std::function<void(const Message&)> handler,
    std::function<void(const std::optional<Error>&)> installed) {
    const auto state = std::make_shared<Subscription::State>();
    state->core = weak_from_this();
    state->handler = std::move(handler);
    state->installed = std::move(installed);
    state->sender = SenderOf(rule);
    const std::lock_guard lock(wire_->mutex);
    int result = -ENOTCONN;
    if (state_ == State::ready) {
        state->owner = this;
        result = sd_bus_add_match_async(wire_->bus, &state->slot, rule.c_str(), &onSignal, &onInstalled,
                                        state.get());
    }
    if (result >= 0) {
        std::erase_if(subscriptions_, [](const auto& other) { return other.expired(); });
        subscriptions_.push_back(state);
    } else if (state->installed) {
        fail({[state, tell = std::exchange(state->installed, nullptr)](const Error& error) {
                 if (state->active) {
                     tell(error);
                 }
             }},
             {error::kFailed, Describe(result)});
    }
    wake();
    return std::make_shared<Subscription>(state);
}

void ConnectionCore::unsubscribe(Subscription::State& state) {
    const std::lock_guard lock(wire_->mutex);
    state.slot = sd_bus_slot_unref(state.slot);
    if (wire_->bus != nullptr) {
        wake();  // the bus is told
    }
}

// --- What the library tells. The mutex is held.

int ConnectionCore::onMessage(sd_bus_message* message, void* core, sd_bus_error* /*error*/) {
    auto& self = *static_cast<ConnectionCore*>(core);
    if (!self.events_.asked || sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0) {
        return 0;
    }
    Message question(self.wire_, sd_bus_message_ref(message));
    if (question.interface() == "org.freedesktop.DBus.Peer") {
        return 0;  // the library answers it
    }
    self.happened_.emplace_back(
        [&self, asked = Question(self.weak_from_this(), std::move(question))] { self.events_.asked(asked); });
    return 1;
}

int ConnectionCore::onReply(sd_bus_message* message, void* pending, sd_bus_error* /*error*/) {
    const auto& waiting = *static_cast<Pending*>(pending);
    ConnectionCore& self = *waiting.core;
    const std::shared_ptr<Pending> call = self.take(waiting.id);
    self.happened_.emplace_back(
        [call, reply = Message(self.wire_, sd_bus_message_ref(message))] { call->done(ToReply(reply)); });
    return 1;
}

int ConnectionCore::onSignal(sd_bus_message* message, void* state, sd_bus_error* /*error*/) {
    auto& subscription = *static_cast<Subscription::State*>(state);
    ConnectionCore& self = *subscription.owner;
    // The library leaves this to the bus, which hands on what is sent to us by name whatever the rule.
    const char* const sender = sd_bus_message_get_sender(message);
    if (!subscription.sender.empty() && (sender == nullptr || subscription.sender != sender)) {
        return 0;
    }
    self.happened_.emplace_back([&self, hears = subscription.shared_from_this(),
                                 signal = Message(self.wire_, sd_bus_message_ref(message))] {
        // The handler before may have closed the connection.
        if (hears->active && self.isReady()) {
            hears->handler(signal);
        }
    });
    return 0;
}

int ConnectionCore::onInstalled(sd_bus_message* message, void* state, sd_bus_error* /*error*/) {
    auto& subscription = *static_cast<Subscription::State*>(state);
    ConnectionCore& self = *subscription.owner;
    self.happened_.emplace_back([hears = subscription.shared_from_this(),
                                 answer = Message(self.wire_, sd_bus_message_ref(message)),
                                 installed = std::exchange(subscription.installed, nullptr)] {
        const Connection::Reply reply = ToReply(answer);
        if (hears->active && installed) {
            installed(reply ? std::nullopt : std::optional(reply.error()));
        }
    });
    return 1;
}

}  // namespace cmn::bus
