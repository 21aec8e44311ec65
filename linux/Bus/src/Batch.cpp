#include "linux_bus/Batch.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace cmn::bus {

namespace {

// Enough to keep both ends busy. Below half of that it goes on, so that it does not wake up for each answer.
constexpr std::size_t kMostOnTheirWay = 128;
constexpr std::size_t kFewOnTheirWay = kMostOnTheirWay / 2;

void AddOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

}  // namespace

Deadline HalfWayTo(Deadline deadline) {
    return deadline - std::max(Clock::duration::zero(), deadline - Clock::now()) / 2;
}

// Shared with the handlers of the answers, which may come when nobody waits for them any more.
struct Batch::Calls {
    struct Call {
        std::string destination;
        Connection::Done take;
        std::optional<Error> error = Error{error::kTimeout, {}};  // that came instead of an answer
        Connection::CallId id = 0;                                // once it is sent
        bool answered = false;

        bool isLate() const { return error && error->is(error::kTimeout); }
    };

    void land(Call& call, const Connection::Reply& reply) {
        bool wakes = false;
        {
            const std::lock_guard lock(mutex);
            if (ended) {
                return;
            }
            call.error = reply ? std::nullopt : std::optional(reply.error());
            call.answered = true;
            if (!call.isLate()) {
                call.take(reply);
            }
            --onTheirWay;
            wakes = onTheirWay == wakeAt;
        }
        if (wakes) {
            landed.notify_one();
        }
    }

    bool awaitAtMost(std::size_t count, Deadline deadline) {
        Loop::aboutToWait();
        std::unique_lock lock(mutex);
        wakeAt = count;
        return landed.wait_until(lock, deadline, [&] { return onTheirWay <= count; });
    }

    std::mutex mutex;  // guards what follows
    std::condition_variable landed;
    std::deque<Call> calls;
    std::size_t onTheirWay = 0;
    std::size_t wakeAt = 0;
    bool ended = false;
};

Batch::Batch(std::shared_ptr<Connection> connection, Deadline deadline)
    : connection_(std::move(connection)), deadline_(deadline), calls_(std::make_shared<Calls>()) {}

Batch::~Batch() {
    end();
}

void Batch::send(const std::string& destination, const std::function<Message()>& makeCall,
                 Connection::Done take) {
    Calls::Call* call = nullptr;
    bool full = false;
    {
        const std::lock_guard lock(calls_->mutex);
        call = &calls_->calls.emplace_back(Calls::Call{destination, std::move(take)});
        full = calls_->onTheirWay >= kMostOnTheirWay;
    }
    if ((!full || calls_->awaitAtMost(kFewOnTheirWay, deadline_)) && Clock::now() < deadline_) {
        {
            const std::lock_guard lock(calls_->mutex);
            ++calls_->onTheirWay;
        }
        call->id = connection_->call(
            makeCall(), deadline_, [calls = calls_, call](const auto& reply) { calls->land(*call, reply); });
    }
}

bool Batch::wait() {
    calls_->awaitAtMost(0, deadline_);
    end();
    bool complete = true;
    std::vector<std::string> heard;
    for (const Calls::Call& call : calls_->calls) {
        complete = complete && !call.isLate();
        if (call.id != 0) {
            AddOnce(call.isLate() ? silent_ : heard, call.destination);
        }
        if (call.error &&
            (call.error->is(error::kServiceUnknown) || call.error->is(error::kNameHasNoOwner))) {
            AddOnce(absent_, call.destination);
        }
    }
    std::erase_if(silent_, [&](const std::string& name) {
        return std::find(heard.begin(), heard.end(), name) != heard.end();
    });
    return complete;
}

void Batch::end() {
    {
        const std::lock_guard lock(calls_->mutex);
        calls_->ended = true;
    }
    for (const Calls::Call& call : calls_->calls) {
        if (call.id != 0 && !call.answered) {
            connection_->cancel(call.id);
        }
    }
}

}  // namespace cmn::bus
