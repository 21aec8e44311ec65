#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "support/FakeDispatch.h"
#include "usercommon/XPCConnection.h"

namespace fake {

// The calls of proxies that are not answered yet, as a transport keeps them; those with a deadline are given
// up in the dispatch's time. Thread-safe; outlives the proxies.
class UnansweredCalls {
 public:
    using Time = std::chrono::nanoseconds;

    explicit UnansweredCalls(std::shared_ptr<Dispatch> dispatch) : dispatch_(std::move(dispatch)) {}

    // When the calls of a proxy that is made now are given up.
    Time limit(Time deadline) const {
        return deadline == cmn::kNoRequestDeadline ? deadline : dispatch_->now() + deadline;
    }
    bool isOver(Time limit) const { return dispatch_->now() >= limit; }

    // What the other end calls instead of `reply`: leads there once and not after the limit, when `reply` is
    // destroyed.
    template <typename... Answer>
    std::function<void(Answer...)> keep(Time limit, std::function<void(Answer...)> reply) {
        auto kept = std::make_shared<std::function<void(Answer...)>>(std::move(reply));
        const std::weak_ptr weakKept = kept;
        {
            const std::lock_guard lock(mutex_);
            kept_.insert(std::move(kept));
        }
        if (limit != cmn::kNoRequestDeadline) {
            dispatch_->after(limit - dispatch_->now(), cmn::QueuePriority::high,
                             [this, weakKept] { drop(weakKept.lock()); });
        }
        return [this, weakKept](Answer... answer) {
            if (const auto answered = weakKept.lock(); answered && drop(answered)) {
                (*answered)(std::forward<Answer>(answer)...);
            }
        };
    }

    std::size_t count() const {
        const std::lock_guard lock(mutex_);
        return kept_.size();
    }

 private:
    bool drop(const std::shared_ptr<void>& kept) {
        const std::lock_guard lock(mutex_);
        return kept_.erase(kept) != 0;
    }

    const std::shared_ptr<Dispatch> dispatch_;
    mutable std::mutex mutex_;
    std::set<std::shared_ptr<void>> kept_;  // guarded by mutex_
};

}  // namespace fake
