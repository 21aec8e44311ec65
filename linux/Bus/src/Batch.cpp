#include "linux_bus/Batch.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
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
        Connection::Reply reply = Error{error::kTimeout, "No answer in time"};
        bool sent = false;
        bool answered = false;
        Connection::CallId id = 0;
    };

    void land(Call& call, const Connection::Reply& reply) {
        bool wakes = false;
        {
            const std::lock_guard lock(mutex);
            if (ended) {
                return;
            }
            call.reply = reply;
            call.answered = true;
            --onTheirWay;
            wakes = onTheirWay == wakeAt;
        }
        if (wakes) {
            landed.notify_one();
        }
    }

    bool awaitAtMost(std::size_t count, Deadline deadline) {
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

std::shared_ptr<const Connection::Reply> Batch::send(const std::string& destination,
                                                     const std::function<Message()>& makeCall) {
    Calls::Call* call = nullptr;
    bool full = false;
    {
        const std::lock_guard lock(calls_->mutex);
        call = &calls_->calls.emplace_back();
        full = calls_->onTheirWay >= kMostOnTheirWay;
    }
    call->destination = destination;
    if ((!full || calls_->awaitAtMost(kFewOnTheirWay, deadline_)) && Clock::now() < deadline_) {
        call->sent = true;
        {
            const std::lock_guard lock(calls_->mutex);
            ++calls_->onTheirWay;
        }
        call->id = connection_->call(
            makeCall(), deadline_, [calls = calls_, call](const auto& reply) { calls->land(*call, reply); });
    }
    return {calls_, &call->reply};
}

bool Batch::wait() {
    calls_->awaitAtMost(0, deadline_);
    end();
    bool complete = true;
    std::vector<std::string> heard;
    for (const Calls::Call& call : calls_->calls) {
        const bool isLate = !call.reply && call.reply.error().is(error::kTimeout);
        complete = complete && !isLate;
        if (call.sent) {
            AddOnce(isLate ? silent_ : heard, call.destination);
        }
        if (!call.reply && (call.reply.error().is(error::kServiceUnknown) ||
                            call.reply.error().is(error::kNameHasNoOwner))) {
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
        if (call.sent && !call.answered) {
            connection_->cancel(call.id);
        }
    }
}

}  // namespace cmn::bus
