#include "BusChannel.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "common/log.h"
#include "common/utf8.h"
#include "usercommon/XPCPeer.h"

namespace cmn {

namespace {

std::string Suggestion(const std::string& peer, const bus::Error& error) {
    if (error.is(bus::error::kServiceUnknown) || error.is(bus::error::kNameHasNoOwner)) {
        return fmt::format("{} is not on the bus; is its daemon running?", peer);
    }
    if (error.is(bus::error::kNoReply) || error.is(bus::error::kTimeout)) {
        return fmt::format("{} did not answer in time or went away", peer);
    }
    return fmt::format("{}: {}", peer, error.message);
}

// The moment at which a caller who waits that long gives up.
bus::Deadline After(std::chrono::nanoseconds delay) {
    const bus::Deadline now = bus::Clock::now();
    return delay < bus::Deadline::max() - now ? now + delay : bus::Deadline::max();
}

}  // namespace

std::shared_ptr<XPCConnection> BusChannel::makeConnection() {
    // What is kept weakly outlives its object: that lets go of this one itself.
    std::shared_ptr<XPCConnection> connection(
        static_cast<XPCConnection*>(this),
        [self = shared_from_this()](XPCConnection*) mutable { std::exchange(self, nullptr)->abandon(); });
    connection_ = connection;
    return connection;
}

void BusChannel::invalidate() {
    // Whoever invalidates usually lets go of it at once; the handler is still to be called.
    end("it was invalidated", connection_.lock());
}

void BusChannel::abandon() {
    {
        Handler invalidation;
        Handler interruption;
        std::shared_ptr<XPCVersioning> object;
        const std::lock_guard lock(mutex_);
        invalidation.swap(invalidationHandler_);
        interruption.swap(interruptionHandler_);
        object.swap(exportedObject_);
    }
    objects_.clear();
}

void BusChannel::setInvalidationHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    invalidationHandler_.swap(handler);
}

void BusChannel::setInterruptionHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    interruptionHandler_.swap(handler);
}

void BusChannel::setRemoteObjectInterface(std::shared_ptr<const XPCInterface> interface) {
    auto described = std::dynamic_pointer_cast<const ServiceInterface>(interface);
    const std::lock_guard lock(mutex_);
    remoteInterface_.swap(described);
}

void BusChannel::setExportedInterface(std::shared_ptr<const XPCInterface> interface) {
    auto described = std::dynamic_pointer_cast<const ServiceInterface>(interface);
    const std::lock_guard lock(mutex_);
    exportedInterface_.swap(described);
}

void BusChannel::setExportedObject(std::shared_ptr<XPCVersioning> object) {
    const std::lock_guard lock(mutex_);
    exportedObject_.swap(object);
}

void BusChannel::publishExportedObject() {
    std::shared_ptr<const ServiceInterface> interface;
    std::shared_ptr<XPCVersioning> object;
    {
        const std::lock_guard lock(mutex_);
        interface = exportedInterface_;
        object = exportedObject_;
    }
    if (interface && object) {
        if (ServiceHandler handler = interface->createHandler(object)) {
            objects_.add(interface->objectPath(), {object, interface->description(), std::move(handler)});
        }
    }
}

std::shared_ptr<XPCVersioning> BusChannel::remoteObjectProxy(RemoteErrorHandler onError,
                                                             std::chrono::nanoseconds deadline) {
    std::shared_ptr<const ServiceInterface> interface;
    {
        const std::lock_guard lock(mutex_);
        interface = remoteInterface_;
    }
    return interface ? interface->createProxy(shared_from_this(), std::move(onError), After(deadline))
                     : nullptr;
}

bus::ObjectPath BusChannel::exportObject(const std::shared_ptr<const void>& object,
                                         std::shared_ptr<const ServiceDescription> interface,
                                         ServiceHandler handler) {
    return object ? objects_.add({object, std::move(interface), std::move(handler)}) : bus::ObjectPath{};
}

void BusChannel::send(bus::Connection& connection, const std::string& to, ServiceRequest request,
                      std::chrono::nanoseconds answerDeadline) {
    const ServiceMethod& method = *request.method;
    bus::Message message = connection.newCall(to, request.path, request.interface->name, method.name);
    if (message && !request.write(message)) {
        fail(request, {bus::error::kLimitsExceeded, "The message is too large"});
        return;
    }
    if (method.noReply) {
        if (!connection.send(message)) {
            fail(request, {bus::error::kFailed, "The message could not be sent"});
        }
        return;
    }
    request.write = nullptr;
    request.deadline = std::min(request.deadline, After(method.deadline));
    const bus::Deadline deadline = std::min(request.deadline, After(answerDeadline));
    const auto asked = std::make_shared<const ServiceRequest>(std::move(request));
    connection.call(std::move(message), deadline,
                    [self = shared_from_this(), asked](const bus::Connection::Reply& reply) {
                        if (!reply && bus::Clock::now() >= asked->deadline) {
                            return;  // the caller does not wait any more
                        }
                        self->queue_->post([self, asked, reply = reply]() mutable {
                            self->finish(*asked, std::move(reply));
                        });
                    });
}

void BusChannel::finish(const ServiceRequest& request, bus::Connection::Reply reply) const {
    std::optional<bus::Error> error;
    if (!reply) {
        error = reply.error();
    } else if (request.onReply) {
        error = request.onReply(*reply);
        if (error && error->is(bus::error::kInvalidArgs)) {
            error->message = fmt::format("{} answered with \"{}\" instead of \"{}\"", request.method->name,
                                         reply->signature(), request.method->out);
        }
    }
    if (error && request.onError) {
        request.onError(toRemoteError(*error));
    }
}

RemoteError BusChannel::toRemoteError(const bus::Error& error) const {
    return {fmt::format("{}: {}", error.name, error.message), Suggestion(peerName(), error)};
}

void BusChannel::fail(const ServiceRequest& request, const bus::Error& error) {
    if (request.onError) {
        queue_->post([onError = request.onError, remote = toRemoteError(error)] { onError(remote); });
    }
}

void BusChannel::deliver(bus::Question question, ExportedObjects::Found found, std::shared_ptr<Place> place) {
    const Lane lane = found.method->slow ? Lane::slow : Lane::quick;
    auto task = [self = shared_from_this(), question = std::move(question), found = std::move(found),
                 place = std::move(place)] {
        if (!self->accepts(question)) {
            return;
        }
        const XPCPeerScope asking(self->peer());
        try {
            found.handler(self, *found.method, question);
        } catch (const std::exception& e) {
            self->logFailure(question, e.what());
            question.fail({bus::error::kFailed, e.what()});
        } catch (...) {
            self->logFailure(question, "not a standard exception");
            question.fail({bus::error::kFailed, "not a standard exception"});
        }
    };
    queue_->post(std::move(task), lane);
}

void BusChannel::logFailure(const bus::Question& question, std::string_view why) const {
    const bus::Message& message = question.message();
    TLOG_WARN("Message {}.{}({}) of {} failed: {}", message.interface(), message.member(),
              message.signature(), peerName(), EscapeControls(why));
}

void BusChannel::tellInterruption() {
    queue_->post([self = shared_from_this()] {
        Handler handler;
        {
            const std::lock_guard lock(self->mutex_);
            handler = self->interruptionHandler_;
        }
        if (handler) {
            handler();
        }
    });
}

void BusChannel::tellInvalidation(std::shared_ptr<void> connection) {
    queue_->post([self = shared_from_this(), connection = std::move(connection)] {
        Handler invalidation;
        Handler interruption;
        std::shared_ptr<XPCVersioning> object;
        {
            const std::lock_guard lock(self->mutex_);
            invalidation.swap(self->invalidationHandler_);
            interruption.swap(self->interruptionHandler_);
            object.swap(self->exportedObject_);
        }
        self->objects_.clear();  // not earlier: messages that came in before are still delivered
        if (invalidation) {
            invalidation();
        }
    });
}

}  // namespace cmn
