#include "accessibility/Listener.h"

#include <string_view>
#include <utility>

namespace useragent {

Listener::Listener(std::shared_ptr<cmn::Dispatch> dispatch, AXObserverCallback callback)
    : dispatch_(std::move(dispatch)), callback_(std::move(callback)) {}

void Listener::tell(AXElementRef element, const char* notification) {
    dispatch_->asyncMain([weak = weak_from_this(), element = std::move(element), notification] {
        const auto self = weak.lock();  // the callback may let go of it
        if (!self) {
            return;
        }
        {
            const std::lock_guard lock(self->mutex_);
            if (!self->delivering_ || self->closed_) {
                self->missed_ = {element, notification};
                return;
            }
            if (std::string_view(self->missed_.name) == notification) {
                self->missed_ = {};  // an older one
            }
        }
        self->callback_(element, notification);
    });
}

void Listener::setDelivering(bool delivering) {
    const std::lock_guard lock(mutex_);
    delivering_ = delivering;
    if (delivering && missed_.element) {
        dispatch_->asyncMain([weak = weak_from_this()] {
            if (const auto self = weak.lock()) {
                self->tellMissed();
            }
        });
    }
}

void Listener::tellMissed() {
    Notification missed;
    {
        const std::lock_guard lock(mutex_);
        if (delivering_ && !closed_) {
            missed = std::exchange(missed_, {});
        }
    }
    if (missed.element) {
        callback_(missed.element, missed.name);
    }
}

void Listener::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
}

void Listeners::add(const std::shared_ptr<Listener>& listener) {
    std::erase_if(listeners_, [](const auto& weak) { return weak.expired(); });
    listeners_.push_back(listener);
}

bool Listeners::tell(const AXElementRef& element, const char* notification) const {
    bool isHeard = false;
    for (const auto& weak : listeners_) {
        if (const auto listener = weak.lock()) {
            listener->tell(element, notification);
            isHeard = true;
        }
    }
    return isHeard;
}

}  // namespace useragent
