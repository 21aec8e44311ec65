#include "DBusClientChannel.h"

#include <utility>

#include "WhileAlive.h"
#include "common/log.h"

namespace cmn {

namespace {

// Buses limit the calls of one connection that are not answered yet, the strictest known to 128; the bus's
// own services take a few.
constexpr std::size_t kMostPendingCalls = 100;
constexpr std::size_t kMostWaitingCalls = 10'000;

}  // namespace

DBusClientChannel::DBusClientChannel(BusSettings settings, std::shared_ptr<SerialQueue> queue,
                                     std::string service)
    : DBusChannelCore(settings.thread, std::move(queue)),
      settings_(std::move(settings)),
      service_(std::move(service)) {}

void DBusClientChannel::resume() {
    publishExportedObject();
    thread()->post([core = self<DBusClientChannel>()] { core->openOnThread(); });
}

void DBusClientChannel::openOnThread() {
    if (state_ != State::created || invalidOnThread()) {
        return;
    }
    state_ = State::connecting;
    const std::weak_ptr<DBusClientChannel> weakCore = self<DBusClientChannel>();
    BusConnection::Events events;
    events.onReady = WhileAlive(weakCore, [](DBusClientChannel& core) { core.watchServiceOnThread(); });
    events.onLost = WhileAlive(
        weakCore, [](DBusClientChannel& core, const std::string& why) { core.invalidateOnThread(why); });
    events.onCall = WhileAlive(
        weakCore, [](DBusClientChannel& core, IncomingCall call) { core.receivedOnThread(std::move(call)); });
    events.onNameOwnerChanged = WhileAlive(weakCore, [](DBusClientChannel& core, const std::string& name,
                                                        const std::string&, const std::string& owner) {
        if (name == core.service_) {
            core.ownerChangedOnThread(owner);
        }
    });
    bus_ = BusConnection::open(settings_, std::move(events));
}

void DBusClientChannel::watchServiceOnThread() {
    if (invalidOnThread()) {
        return;
    }
    const auto current = [](DBusClientChannel& core, const std::string& owner) {
        // A change that was reported meanwhile is at least as new as this answer.
        if (core.state_ == State::connecting) {
            core.ownerChangedOnThread(owner);
        }
    };
    bus_->watchOwners("arg0='" + service_ + "'");
    bus_->askOwner(service_, WhileAlive(std::weak_ptr(self<DBusClientChannel>()), current));
}

void DBusClientChannel::ownerChangedOnThread(const std::string& owner) {
    const bool wasThere = state_ == State::active;
    if (invalidOnThread() || (wasThere && owner == owner_)) {
        return;
    }
    if (state_ == State::connecting && owner.empty()) {
        invalidateOnThread("nobody owns the name");
        return;
    }
    owner_ = owner;
    state_ = owner.empty() ? State::interrupted : State::active;
    if (wasThere) {
        const DBusError left{dbus_error::kNoReply, "The service left the bus"};
        failPendingOnThread(left);
        failWaitingOnThread(left);
        notifyInterruption();
    }
    sendWaitingOnThread();
}

void DBusClientChannel::sendWaitingOnThread() {
    while (state_ == State::active && !waiting_.empty() && pendingOnThread() < kMostPendingCalls) {
        PendingCall call = std::move(waiting_.front());
        waiting_.pop_front();
        sendOnThread(*bus_, std::move(call));
    }
}

void DBusClientChannel::failWaitingOnThread(const DBusError& error) {
    for (const PendingCall& call : std::exchange(waiting_, {})) {
        fail(call, error);
    }
}

void DBusClientChannel::abandonOnThread() {
    // Their replies usually own the proxy, and it this object.
    waiting_.clear();
    DBusChannelCore::abandonOnThread();
}

void DBusClientChannel::startOnThread(PendingCall call) {
    if (invalidOnThread()) {
        fail(call, endedError());
    } else if (state_ == State::interrupted) {
        fail(call, {dbus_error::kServiceUnknown, "The service has left the bus"});
    } else if (waiting_.size() >= kMostWaitingCalls) {
        fail(call, {dbus_error::kLimitsExceeded, "Too many messages are waiting"});
    } else {
        waiting_.push_back(std::move(call));
        sendWaitingOnThread();
    }
}

void DBusClientChannel::receivedOnThread(IncomingCall call) {
    if (invalidOnThread()) {
        return;
    }
    if (call.sender == owner_) {
        deliverOnThread(bus_, std::move(call));
        return;
    }
    TLOG_WARN("Message {} of {} refused: only {} may call", call.member, call.sender, service_);
    bus_->answer(call.question,
                 DBusError{dbus_error::kAccessDenied, "Only the owner of " + service_ + " may call"});
}

void DBusClientChannel::invalidateOnThread(const std::string& why) {
    failWaitingOnThread({dbus_error::kDisconnected, why});
    bus_.reset();
    DBusChannelCore::invalidateOnThread(why);
}

}  // namespace cmn
