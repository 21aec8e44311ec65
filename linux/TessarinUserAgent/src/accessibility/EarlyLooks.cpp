#include "accessibility/EarlyLooks.h"

#include <algorithm>
#include <utility>

namespace useragent {
namespace {

using namespace std::chrono_literals;

constexpr auto kPrice = 500ms;  // so many early cycles in the long run
constexpr auto kCredit = 10s;   // and that much of it at once

}  // namespace

EarlyLooks::EarlyLooks(std::shared_ptr<cmn::bus::Loop> loop, std::function<void()> begin)
    : loop_(std::move(loop)), begin_(std::move(begin)) {}

void EarlyLooks::ask(std::chrono::milliseconds delay) {
    const Clock::time_point time = Clock::now() + delay;
    {
        const std::lock_guard lock(mutex_);
        if (!begin_ || (next_ && *next_ <= time)) {
            return;
        }
        next_ = time;
    }
    loop_->at(time, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->due();
        }
    });
}

void EarlyLooks::due() {
    {
        const std::lock_guard lock(mutex_);
        const Clock::time_point now = Clock::now();
        if (!next_ || now < *next_) {
            return;  // begun by one that was asked for later, for an earlier time
        }
        next_.reset();
        if (paidUntil_ > now + kCredit) {
            return;
        }
        paidUntil_ = std::max(paidUntil_, now) + kPrice;
    }
    begin_();
}

}  // namespace useragent
