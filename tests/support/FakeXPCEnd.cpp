#include "support/FakeXPCEnd.h"

#include <exception>

namespace fake {

XPCEnd::Forgotten::~Forgotten() {
    if (const auto asking = end.lock()) {
        asking->failCall(id, "The call was not answered");
    }
}

XPCEnd::XPCEnd(std::shared_ptr<Dispatch> dispatch)
    : dispatch_(std::move(dispatch)),
      queue_(std::make_shared<cmn::SerialQueue>([dispatch = dispatch_](cmn::Lane, Dispatch::Task task) {
          dispatch->deliver(std::chrono::nanoseconds(0), std::move(task));
      })) {}

XPCEnd::~XPCEnd() {
    if (service_) {
        service_->end(nullptr);
    }
}

void XPCEnd::setReach(std::function<std::shared_ptr<XPCEnd>()> reach) {
    const std::lock_guard lock(mutex_);
    reach_ = std::move(reach);
}

void XPCEnd::setInvalidationHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    invalidation_.swap(handler);
}

void XPCEnd::setInterruptionHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    interruption_.swap(handler);
}

void XPCEnd::setExportedObject(std::shared_ptr<cmn::XPCVersioning> object) {
    const std::lock_guard lock(mutex_);
    exportedObject_.swap(object);
}

std::shared_ptr<cmn::XPCVersioning> XPCEnd::exportedObject() const {
    const std::lock_guard lock(mutex_);
    return exportedObject_;
}

bool XPCEnd::hasHandlers() const {
    const std::lock_guard lock(mutex_);
    return invalidation_ && interruption_;
}

void XPCEnd::setPeer(std::optional<cmn::XPCPeer> peer) {
    const std::lock_guard lock(mutex_);
    peer_ = peer;
}

std::optional<cmn::XPCPeer> XPCEnd::peer() const {
    const std::lock_guard lock(mutex_);
    return peer_;
}

void XPCEnd::setRejected() {
    const std::lock_guard lock(mutex_);
    rejected_ = true;
}

bool XPCEnd::ended() const {
    const std::lock_guard lock(mutex_);
    return ended_;
}

void XPCEnd::end(std::shared_ptr<void> connection) {
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(ended_, true)) {
            return;
        }
    }
    post([self = shared_from_this(), connection = std::move(connection)] {
        std::shared_ptr<XPCEnd> service;
        std::function<void()> invalidation, interruption;
        std::shared_ptr<cmn::XPCVersioning> object;
        std::set<std::shared_ptr<void>> passed;
        {
            const std::lock_guard lock(self->mutex_);
            passed.swap(self->passed_);
            service.swap(self->service_);
            invalidation.swap(self->invalidation_);
            interruption.swap(self->interruption_);
            object.swap(self->exportedObject_);
        }
        if (service) {
            service->end(nullptr);
        }
        self->failAll();
        if (invalidation) {
            invalidation();
        }
    });
}

void XPCEnd::interrupt() {
    post([self = shared_from_this()] {
        std::shared_ptr<XPCEnd> left;
        std::function<void()> handler;
        {
            const std::lock_guard lock(self->mutex_);
            left.swap(self->service_);
            handler = self->interruption_;
        }
        self->failAll();
        if (handler) {
            handler();
        }
    });
}

void XPCEnd::abandon() {
    std::function<void()> invalidation, interruption;
    std::shared_ptr<cmn::XPCVersioning> object;
    std::set<std::shared_ptr<void>> passed;
    std::map<int, Call> calls;
    const std::lock_guard lock(mutex_);
    passed.swap(passed_);
    if (!ended_) {  // else the handler is to be called
        invalidation.swap(invalidation_);
        interruption.swap(interruption_);
        object.swap(exportedObject_);
    }
    calls.swap(calls_);
}

void XPCEnd::deliver(Message message, std::function<void(const std::string&)> onFailure) {
    post([self = shared_from_this(), message = std::move(message), onFailure = std::move(onFailure)] {
        std::shared_ptr<cmn::XPCVersioning> object;
        bool rejected = false;
        {
            const std::lock_guard lock(self->mutex_);
            object = self->exportedObject_;
            rejected = self->rejected_;
        }
        if (rejected || !object) {
            onFailure(rejected ? "The connection was not accepted" : "The connection has ended");
            return;
        }
        const cmn::XPCPeerScope scope(self->peer());
        try {
            message(*object);
        } catch (const std::exception& error) {
            onFailure(error.what());
        }
    });
}

std::weak_ptr<void> XPCEnd::pass(std::shared_ptr<void> object) {
    const std::lock_guard lock(mutex_);
    return ended_ ? std::weak_ptr<void>() : *passed_.insert(std::move(object)).first;
}

std::shared_ptr<XPCEnd> XPCEnd::service() const {
    const std::lock_guard lock(mutex_);
    return service_;
}

std::shared_ptr<XPCEnd> XPCEnd::reachService() {
    std::function<std::shared_ptr<XPCEnd>()> reach;
    {
        const std::lock_guard lock(mutex_);
        if (service_ || ended_) {
            return service_;
        }
        reach = reach_;
    }
    std::shared_ptr<XPCEnd> found = reach ? reach() : nullptr;
    const std::lock_guard lock(mutex_);
    service_ = found;
    return found;
}

void XPCEnd::send(std::size_t bytes, Message message, const cmn::RemoteErrorHandler& onError) {
    const auto fail = [self = shared_from_this(), onError](const std::string& why) {
        self->post([onError, why] { onError({why, why}); });
    };
    if (bytes > kMostBytes) {
        fail("The message is too large");
    } else if (const auto client = client_.lock()) {
        client->deliver(std::move(message), fail);
    } else if (ended()) {
        fail("The connection has ended");
    } else {
        post([self = shared_from_this(), message = std::move(message), onError, fail] {
            if (const auto service = self->reachService()) {
                service->deliver(message, fail);
            } else {
                onError({"The service is not there", "Is its daemon running?"});
            }
        });
    }
}

int XPCEnd::addCall(Call call, Time limit) {
    int id = 0;
    {
        const std::lock_guard lock(mutex_);
        id = ++lastCall_;
        calls_.emplace(id, std::move(call));
    }
    if (limit != cmn::kNoRequestDeadline) {
        dispatch_->deliver(limit - dispatch_->now(), [weak = weak_from_this(), id] {
            if (const auto self = weak.lock()) {
                self->takeCall(id);
            }
        });
    }
    return id;
}

std::optional<XPCEnd::Call> XPCEnd::takeCall(int id) {
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(id);
    if (found == calls_.end()) {
        return std::nullopt;
    }
    std::optional<Call> call = std::move(found->second);
    calls_.erase(found);
    return call;
}

void XPCEnd::failCall(int id, const std::string& why) {
    post([self = shared_from_this(), id, why] {
        if (const std::optional<Call> call = self->takeCall(id); call && call->onError) {
            call->onError({why, why});
        }
    });
}

void XPCEnd::failAll() {
    std::map<int, Call> calls;
    {
        const std::lock_guard lock(mutex_);
        calls.swap(calls_);
    }
    for (const auto& [id, call] : calls) {
        if (call.onError) {
            call.onError({"The service went away", "The service went away"});
        }
    }
}

}  // namespace fake
