#include "DBusChannelCore.h"

#include <fmt/format.h>

#include <utility>

#include "common/log.h"

namespace cmn {

namespace {

// Calls of one peer that may wait for their turn; more are refused.
constexpr unsigned kMostQueuedCalls = 10'000;

std::string Suggestion(const std::string& peer, const DBusError& error) {
    if (error.name == dbus_error::kServiceUnknown || error.name == dbus_error::kNameHasNoOwner) {
        return fmt::format("{} is not on the bus; is its daemon running?", peer);
    }
    if (error.name == dbus_error::kNoReply) {
        return fmt::format("{} did not answer in time or went away", peer);
    }
    return fmt::format("{}: {}", peer, error.message);
}

}  // namespace

DBusChannelCore::DBusChannelCore(std::shared_ptr<DBusThread> thread, std::shared_ptr<SerialQueue> queue)
    : thread_(std::move(thread)), queue_(std::move(queue)) {}

void DBusChannelCore::invalidate(std::shared_ptr<void> connection) {
    thread_->post([core = shared_from_this(), connection = std::move(connection)] {
        core->invalidateOnThread("it was invalidated");
        core->keepForQueued(connection);
    });
}

void DBusChannelCore::keepForQueued(std::shared_ptr<void> kept) {
    queue_->post([kept = std::move(kept)] {});
}

void DBusChannelCore::abandon() {
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
    thread_->post([core = shared_from_this()] { core->abandonOnThread(); });
}

void DBusChannelCore::setInvalidationHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    invalidationHandler_.swap(handler);
}

void DBusChannelCore::setInterruptionHandler(std::function<void()> handler) {
    const std::lock_guard lock(mutex_);
    interruptionHandler_.swap(handler);
}

void DBusChannelCore::setRemoteObjectInterface(std::shared_ptr<const DBusXPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    remoteInterface_.swap(interface);
}

void DBusChannelCore::setExportedInterface(std::shared_ptr<const DBusXPCInterface> interface) {
    const std::lock_guard lock(mutex_);
    exportedInterface_.swap(interface);
}

void DBusChannelCore::setExportedObject(std::shared_ptr<XPCVersioning> object) {
    const std::lock_guard lock(mutex_);
    exportedObject_.swap(object);
}

void DBusChannelCore::publishExportedObject() {
    std::shared_ptr<const DBusXPCInterface> interface;
    std::shared_ptr<XPCVersioning> object;
    {
        const std::lock_guard lock(mutex_);
        interface = exportedInterface_;
        object = exportedObject_;
    }
    if (interface && object) {
        if (DBusObjectHandler handler = interface->createHandler(object)) {
            objects_.add(interface->objectPath(), {object, interface->description(), std::move(handler)});
        }
    }
}

std::shared_ptr<XPCVersioning> DBusChannelCore::remoteObjectProxy(RemoteErrorHandler onError) {
    std::shared_ptr<const DBusXPCInterface> interface;
    {
        const std::lock_guard lock(mutex_);
        interface = remoteInterface_;
    }
    return interface ? interface->createProxy(shared_from_this(), std::move(onError)) : nullptr;
}

void DBusChannelCore::call(const std::string& path, const DBusInterfaceDescription& interface,
                           const DBusMethod& method, DBusArguments arguments, ReplyHandler onReply,
                           RemoteErrorHandler onError) {
    PendingCall call{{peerName(), path, interface.name, method.name, std::move(arguments)},
                     method.name,
                     method.out,
                     method.noReply,
                     std::move(onReply),
                     std::move(onError)};
    thread_->post([core = shared_from_this(), call = std::move(call)]() mutable {
        core->startOnThread(std::move(call));
    });
}

DBusObjectPath DBusChannelCore::exportObject(const std::shared_ptr<const void>& object,
                                             std::shared_ptr<const DBusInterfaceDescription> interface,
                                             DBusObjectHandler handler) {
    return object ? objects_.add({object, std::move(interface), std::move(handler)}) : DBusObjectPath{};
}

void DBusChannelCore::sendOnThread(BusConnection& bus, PendingCall call) {
    if (call.noReply) {
        if (!bus.send(std::move(call.message))) {
            fail(call, {dbus_error::kFailed, "The message could not be sent"});
        }
        return;
    }
    const std::uint64_t id = ++lastPending_;
    bus.call(std::move(call.message), [weakCore = weak_from_this(), id](const QDBusMessage& answer) {
        if (const auto core = weakCore.lock()) {
            core->answeredOnThread(id, answer);
        }
    });
    pending_.emplace(id, std::move(call));
}

void DBusChannelCore::answeredOnThread(std::uint64_t id, const QDBusMessage& answer) {
    const auto entry = pending_.find(id);
    if (entry == pending_.end()) {
        return;  // it has failed already
    }
    queue_->post(
        [core = shared_from_this(), call = std::move(entry->second), answer] { core->finish(call, answer); });
    pending_.erase(entry);
    roomOnThread();
}

void DBusChannelCore::finish(const PendingCall& call, const QDBusMessage& answer) const {
    DBusResult result = ToResult(answer);
    auto* const arguments = std::get_if<DBusArguments>(&result);
    if (arguments != nullptr && DBusSignature(*arguments) != call.out) {
        result = DBusError{dbus_error::kInvalidArgs,
                           fmt::format("{} answered with \"{}\" instead of \"{}\"", call.member,
                                       DBusSignature(*arguments), call.out)};
    }
    if (const auto* error = std::get_if<DBusError>(&result)) {
        if (call.onError) {
            call.onError(toRemoteError(*error));
        }
    } else if (call.onReply) {
        call.onReply(std::move(*arguments));
    }
}

RemoteError DBusChannelCore::toRemoteError(const DBusError& error) const {
    return {fmt::format("{}: {}", error.name, error.message), Suggestion(peerName(), error)};
}

void DBusChannelCore::fail(const PendingCall& call, const DBusError& error) {
    if (call.onError) {
        queue_->post([onError = call.onError, remote = toRemoteError(error)] { onError(remote); });
    }
}

void DBusChannelCore::failPendingOnThread(const DBusError& error) {
    for (const auto& [id, call] : std::exchange(pending_, {})) {
        fail(call, error);
    }
}

void DBusChannelCore::invalidateOnThread(const std::string& why) {
    if (std::exchange(invalid_, true)) {
        return;
    }
    TLOG_DEBUG("The connection with {} has ended: {}", peerName(), why);
    whyInvalid_ = why;
    failPendingOnThread(endedError());
    notify(&DBusChannelCore::invalidationHandler_, true);
}

DBusError DBusChannelCore::endedError() const {
    return {dbus_error::kDisconnected, fmt::format("The connection has ended: {}", whyInvalid_)};
}

void DBusChannelCore::notifyInterruption() {
    notify(&DBusChannelCore::interruptionHandler_, false);
}

void DBusChannelCore::notify(Handler DBusChannelCore::*handler, bool last) {
    queue_->post([core = shared_from_this(), handler, last] {
        Handler called;
        Handler invalidation;
        Handler interruption;
        std::shared_ptr<XPCVersioning> object;
        {
            const std::lock_guard lock(core->mutex_);
            called = core.get()->*handler;
            if (last) {
                invalidation.swap(core->invalidationHandler_);
                interruption.swap(core->interruptionHandler_);
                object.swap(core->exportedObject_);
            }
        }
        if (last) {  // not earlier: messages that came in before are still delivered
            core->objects_.clear();
        }
        if (called) {
            called();
        }
    });
}

DBusReply DBusChannelCore::makeReply(const std::shared_ptr<BusConnection>& bus,
                                     const QDBusMessage& question) {
    if (question.type() == QDBusMessage::InvalidMessage) {
        return DBusReply(nullptr);
    }
    // Sent by whoever answers: turning a large answer into a message takes long, and the D-Bus thread serves
    // all peers.
    return DBusReply([weakBus = std::weak_ptr(bus), question](DBusResult result) {
        if (const auto alive = weakBus.lock()) {
            alive->answer(question, std::move(result));
        }
    });
}

void DBusChannelCore::deliverOnThread(const std::shared_ptr<BusConnection>& bus, IncomingCall call) {
    const DBusReply reply = makeReply(bus, call.question);
    if (queuedCalls_ >= kMostQueuedCalls) {
        TLOG_WARN("Message {} of {} refused: too many wait", call.member, call.sender);
        reply.error(dbus_error::kLimitsExceeded, "Too many messages of yours are waiting");
        return;
    }
    ++queuedCalls_;
    queue_->post([core = shared_from_this(), call = std::move(call), reply] {
        --core->queuedCalls_;
        if (core->accepts()) {
            core->objects_.deliver(core, call, reply);
        } else {
            TLOG_WARN("Message {} of {} refused: its connection was not accepted", call.member, call.sender);
            reply.error(dbus_error::kAccessDenied, "The connection was not accepted");
        }
    });
}

}  // namespace cmn
