#include "ConnectionCore.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

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
            arm();
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
        did(watch());
    }
    if (result < 0) {
        closeBus();
        return result;
    }
    connectBy_ = Clock::now() + options_.connectDeadline;
    return 0;
}

int ConnectionCore::watch() {
    const int descriptor = fcntl(sd_bus_get_fd(wire_->bus), F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) {
        return -errno;
    }
    auto watch = std::make_unique<Watch>(loop_->context());
    boost::system::error_code error;
    watch->socket.assign(descriptor, error);
    if (error) {
        ::close(descriptor);
        return -error.value();
    }
    watch_ = std::move(watch);
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
    nextLook_ = Clock::now() + options_.livenessPause;
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
        watch_.reset();
        // Whatever it is that answers: the library says so of everything that is not consent.
        connectNext(address_ + ": " + (result == -EPERM ? "it does not let this user in" : Describe(result)));
    } else if (result < 0) {
        lost(Describe(result));
    } else {
        lookAtTheClock();
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
        watch_.reset();
        connectNext(fmt::format("{}: no answer within {} ms", address_, options_.connectDeadline.count()));
    } else if (nextLook_ <= now) {
        nextLook_ = now + options_.livenessPause;
        if (std::exchange(heardAtLook_, heard_) == heard_) {
            askWhetherAlive();
        }
    }
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
    bool wantsToWrite = false;
    Deadline until{};
    {
        const std::lock_guard lock(wire_->mutex);
        if (wire_->bus == nullptr || !watch_) {
            return;
        }
        const int events = sd_bus_get_events(wire_->bus);
        wantsToWrite = events > 0 && (static_cast<unsigned>(events) & static_cast<unsigned>(POLLOUT)) != 0;
        armedFor_ = until = std::min(nextDeadline(), nextLook_);
    }
    const auto after = [this](bool Watch::*busy) {
        return [weak = weak_from_this(), busy, watch = watch_.get()](const boost::system::error_code& error) {
            const auto self = weak.lock();
            if (self && !error && self->watch_.get() == watch) {
                watch->*busy = false;
                self->turn();
            }
        };
    };
    using Socket = boost::asio::posix::stream_descriptor;
    if (!std::exchange(watch_->reading, true)) {
        watch_->socket.async_wait(Socket::wait_read, after(&Watch::reading));
    }
    if (wantsToWrite && !std::exchange(watch_->writing, true)) {
        watch_->socket.async_wait(Socket::wait_write, after(&Watch::writing));
    }
    if (until < watch_->timerAt) {
        watch_->timerAt = until;
        watch_->timer.expires_at(until);
        watch_->timer.async_wait(
            [weak = weak_from_this(), watch = watch_.get()](const boost::system::error_code& error) {
                const auto self = weak.lock();
                if (self && !error && self->watch_.get() == watch) {
                    watch->timerAt = Deadline::max();
                    self->turn();
                }
            });
    }
}

void ConnectionCore::wake() {
    loop_->post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
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
    watch_.reset();
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
    retire();
}

void ConnectionCore::drop() {
    dropped_ = true;
    std::vector<Failing> waiting;
    {
        const std::lock_guard lock(wire_->mutex);
        waiting = end();
    }
    retire();
}

void ConnectionCore::retire() {
    loop_->post([self = shared_from_this()] { self->watch_.reset(); });
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
