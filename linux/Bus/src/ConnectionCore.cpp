#include "ConnectionCore.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "common/log.h"

namespace cmn::bus {

namespace {

// One turn of the loop serves that many messages of one connection, then the others.
constexpr unsigned kMessagesATurn = 64;

Error EndedError(const std::string& why) {
    return {error::kDisconnected, "The connection has ended: " + why};
}

}  // namespace

std::string Describe(int negativeErrno) {
    return std::strerror(-negativeErrno);  // NOLINT(concurrency-mt-unsafe): the C library's is safe
}

ConnectionCore::ConnectionCore(std::shared_ptr<Loop> loop, Options options, Connection::Events events)
    : loop_(std::move(loop)),
      options_(std::move(options)),
      events_(std::move(events)),
      addresses_(LocalAddresses(options_.address)) {
    std::reverse(addresses_.begin(), addresses_.end());
}

// --- Connecting

void ConnectionCore::connectNext(std::string failure) {
    while (!addresses_.empty()) {
        address_ = std::move(addresses_.back());
        addresses_.pop_back();
        const int result = connect(address_);
        if (result >= 0) {
            return;
        }
        failure = address_ + ": " + Describe(result);
    }
    lost(failure);
}

int ConnectionCore::connect(const std::string& address) {
    const std::lock_guard lock(wire_->mutex);
    if (state_ == State::ended) {
        return 0;
    }
    int result = sd_bus_new(&wire_->bus);
    sd_bus* const bus = wire_->bus;
    const auto did = [&](int step) { result = result >= 0 ? step : result; };
    did(sd_bus_set_address(bus, address.c_str()));
    did(sd_bus_set_bus_client(bus, 1));
    did(sd_bus_negotiate_fds(bus, 0));  // a message that is refused would leave its descriptors open
    did(sd_bus_add_filter(bus, nullptr, &onMessage, this));
    did(sd_bus_start(bus));
    if (result >= 0) {
        watch_ = loop_->watch(sd_bus_get_fd(bus), [weak = weak_from_this()] {
            if (const auto self = weak.lock()) {
                self->turn();
            }
        });
        did(watch_ != 0 ? 0 : -errno);
    }
    if (result < 0) {
        closeBus();
        return result;
    }
    connectBy_ = Clock::now() + options_.connectDeadline;
    arm();
    return 0;
}

void ConnectionCore::becomeReady() {
    if (state_ != State::connecting || wire_->bus == nullptr || sd_bus_is_ready(wire_->bus) <= 0) {
        return;
    }
    state_ = State::ready;
    connectBy_ = Deadline::max();
    // Not asked later: on a bus that is about to end the library would wait.
    const char* name = nullptr;
    uniqueName_ = sd_bus_get_unique_name(wire_->bus, &name) >= 0 ? name : "";
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(sd_bus_get_fd(wire_->bus), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
        busUser_ = peer.uid;
    }
    nextLook_ = nextTick();
    if (events_.ready) {
        happened_.emplace_back(events_.ready);
    }
}

// --- The loop's side

void ConnectionCore::turn() {
    int result = 1;
    for (unsigned i = 0; i < kMessagesATurn && result > 0; ++i) {
        result = processOne();
        heard_ += result > 0 ? 1 : 0;
    }
    bool connecting = false;
    {
        const std::lock_guard lock(wire_->mutex);
        startWaiting();
        connecting = state_ == State::connecting;
        if (result < 0 && connecting) {
            closeBus();
        }
    }
    if (result < 0 && connecting) {
        // Whatever it is that answers: the library says so of everything that is not consent.
        connectNext(address_ + ": " + (result == -EPERM ? "it does not let this user in" : Describe(result)));
    } else if (result < 0) {
        lost(Describe(result));
    } else {
        lookAtTheClock();
        const std::lock_guard lock(wire_->mutex);
        arm();
    }
}

int ConnectionCore::processOne() {
    int result = 0;
    Told told;
    {
        const std::lock_guard lock(wire_->mutex);
        if (wire_->bus == nullptr) {
            return 0;
        }
        // The library would answer the waiting calls one by one, with an error of its own.
        const auto hasEnded = [this] { return sd_bus_is_open(wire_->bus) <= 0; };
        result = hasEnded() ? -ECONNRESET : sd_bus_process(wire_->bus, nullptr);
        becomeReady();
        told.swap(happened_);
        // A bus that fails may not notice itself that it is of no further use.
        if (result >= 0 && hasEnded()) {
            result = -ECONNRESET;
        }
    }
    for (auto& what : told) {
        tell(std::exchange(what, nullptr));
    }
    return result;
}

void ConnectionCore::tell(const std::function<void()>& what) const {
    if (dropped_) {
        return;
    }
    try {
        what();
    } catch (const std::exception& e) {
        TLOG_ERROR("Task -- failed: {}", e.what());
    }
}

void ConnectionCore::lookAtTheClock() {
    const Deadline now = Clock::now();
    std::vector<Taken> late;
    bool givenUp = false;
    {
        const std::lock_guard lock(wire_->mutex);
        while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
            late.push_back(take(deadlines_.begin()->second));
        }
        startWaiting();
        givenUp = state_ == State::connecting && connectBy_ <= now;
        if (givenUp) {
            closeBus();
        }
    }
    for (const Taken& call : late) {
        tell([&] { call->done(Error{error::kTimeout, "No answer in time"}); });
    }
    if (givenUp) {
        connectNext(fmt::format("{}: no answer within {} ms", address_, options_.connectDeadline.count()));
    } else if (nextLook_ <= now) {
        nextLook_ = nextTick();
        if (std::exchange(heardAtLook_, heard_) == heard_) {
            askWhetherAlive();
        }
    }
}

// The same for all connections, so that one wake-up does.
Deadline ConnectionCore::nextTick() const {
    const Clock::duration now = Clock::now().time_since_epoch();
    return Deadline(now - now % options_.livenessPause + options_.livenessPause);
}

void ConnectionCore::askWhetherAlive() {
    Message question = newMessage([](sd_bus* bus, sd_bus_message** raw) {
        return sd_bus_message_new_method_call(bus, raw, kBusName, kBusPath, kBusName, "GetId");
    });
    call(
        std::move(question), Clock::now() + options_.answerDeadline,
        [weak = weak_from_this(), heard = heard_](const Connection::Reply& reply) {
            const auto self = weak.lock();
            if (self && !reply && reply.error().is(error::kTimeout) && self->heard_ == heard) {
                self->lost("the bus does not answer");
            }
        },
        Turn::always);
}

void ConnectionCore::arm() {
    if (wire_->bus != nullptr) {
        const int events = sd_bus_get_events(wire_->bus);
        awaitWriting(events > 0 && (static_cast<unsigned>(events) & static_cast<unsigned>(POLLOUT)) != 0);
        const Deadline next = std::min(nextDeadline(), nextLook_);
        if (deadlines_.empty() && awaited_ < next) {
            awaited_ = Deadline::max();  // of a call that was answered
        }
        awaitTime(next);
    }
}

void ConnectionCore::awaitWriting(bool wanted) {
    if (std::exchange(awaitsWriting_, wanted) != wanted) {
        loop_->wantToWrite(watch_, sd_bus_get_fd(wire_->bus), wanted);
    }
}

void ConnectionCore::awaitTime(Deadline time) {
    if (time < awaited_) {
        awaited_ = time;
        loop_->cancel(timer_);
        timer_ = loop_->at(time, [weak = weak_from_this(), time] {
            if (const auto self = weak.lock()) {
                {
                    const std::lock_guard lock(self->wire_->mutex);
                    if (self->awaited_ != time) {
                        return;  // another one has taken its place meanwhile
                    }
                    self->awaited_ = Deadline::max();
                }
                self->turn();
            }
        });
    }
}

void ConnectionCore::wake() {
    loop_->post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            const std::lock_guard lock(self->wire_->mutex);
            self->arm();
        }
    });
}

void ConnectionCore::lost(const std::string& why) {
    std::vector<Failing> waiting;
    {
        const std::lock_guard lock(wire_->mutex);
        if (state_ == State::ended) {
            return;
        }
        waiting = end();
    }
    for (const Failing& one : waiting) {
        tell([&] { one(EndedError(why)); });
    }
    if (events_.lost) {
        tell([&] { events_.lost(why); });
    }
}

// --- Ending

std::vector<ConnectionCore::Failing> ConnectionCore::end() {
    state_ = State::ended;
    std::vector<Failing> waiting;
    for (Taken& call : takeAll()) {
        waiting.push_back(failing(std::move(call)));
    }
    for (const auto& weak : subscriptions_) {
        const auto subscription = weak.lock();
        if (!subscription) {
            continue;
        }
        subscription->slot = sd_bus_slot_unref(subscription->slot);
        if (subscription->installed) {
            waiting.emplace_back([subscription, installed = std::exchange(subscription->installed, nullptr)](
                                     const Error& error) {
                if (subscription->active) {
                    installed(error);
                }
            });
        }
    }
    subscriptions_.clear();
    happened_.clear();
    closeBus();
    return waiting;
}

ConnectionCore::Failing ConnectionCore::failing(Taken call) {
    return [call = std::shared_ptr<Pending>(std::move(call))](const Error& error) { call->done(error); };
}

void ConnectionCore::closeBus() {
    if (wire_->bus != nullptr) {
        if (watch_ != 0) {
            loop_->unwatch(std::exchange(watch_, 0), sd_bus_get_fd(wire_->bus));
        }
        awaitsWriting_ = false;
        sd_bus_close(wire_->bus);
        wire_->bus = sd_bus_unref(wire_->bus);
    }
}

void ConnectionCore::close(const std::string& why) {
    std::vector<Failing> waiting;
    {
        const std::lock_guard lock(wire_->mutex);
        if (state_ == State::ended) {
            return;
        }
        waiting = end();
    }
    fail(std::move(waiting), EndedError(why));
}

void ConnectionCore::drop() {
    dropped_ = true;
    std::vector<Failing> waiting;
    {
        const std::lock_guard lock(wire_->mutex);
        waiting = end();
    }
}

void ConnectionCore::fail(std::vector<Failing> waiting, const Error& error) {
    if (waiting.empty()) {
        return;
    }
    loop_->post([self = shared_from_this(), waiting = std::move(waiting), error] {
        for (const Failing& one : waiting) {
            self->tell([&] { one(error); });
        }
    });
}

Deadline ConnectionCore::nextDeadline() const {
    Deadline until = connectBy_;
    if (!deadlines_.empty()) {
        until = std::min(until, deadlines_.begin()->first);
    }
    std::uint64_t microseconds = UINT64_MAX;  // of the monotonic clock, as ours
    if (sd_bus_get_timeout(wire_->bus, &microseconds) > 0 && microseconds != UINT64_MAX) {
        until = std::min(until, Deadline(std::chrono::microseconds(microseconds)));
    }
    return until;
}

bool ConnectionCore::isReady() const {
    const std::lock_guard lock(wire_->mutex);
    return state_ == State::ready;
}

std::string ConnectionCore::uniqueName() const {
    const std::lock_guard lock(wire_->mutex);
    return state_ == State::ready ? uniqueName_ : "";
}

std::optional<uid_t> ConnectionCore::busUser() const {
    const std::lock_guard lock(wire_->mutex);
    return state_ == State::ready ? busUser_ : std::nullopt;
}

}  // namespace cmn::bus
