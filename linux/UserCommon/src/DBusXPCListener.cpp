#include "DBusXPCListener.h"

#include <fmt/format.h>

#include <utility>

#include "DBusXPCConnection.h"
#include "WhileAlive.h"
#include "common/log.h"

namespace cmn {

namespace {

// Arguments and answer of the bus's RequestName.
constexpr std::uint32_t kDoNotQueue = 4;
constexpr std::uint32_t kPrimaryOwner = 1;

}  // namespace

// The state of the listener. Apart from the constructor everything happens on the D-Bus thread.
class DBusXPCListener::Core : public std::enable_shared_from_this<Core> {
    template <typename Action>
    auto withSelf(Action action) {
        return WhileAlive(weak_from_this(), std::move(action));
    }

 public:
    Core(Parts parts, std::string name)
        : parts_(std::move(parts)), name_(std::move(name)), events_(parts_.createQueue()) {}

    const std::shared_ptr<DBusThread>& thread() const { return parts_.bus.thread; }

    void open(std::weak_ptr<DBusXPCListener> listener) {
        if (std::exchange(resumed_, true)) {
            return;
        }
        listener_ = std::move(listener);
        BusConnection::Events events;
        events.onReady = withSelf([](Core& core) { core.requestName(); });
        events.onLost = withSelf([](Core& core, const std::string& why) { core.lost(why); });
        events.onCall = withSelf([](Core& core, IncomingCall call) { core.received(std::move(call)); });
        events.onNameOwnerChanged = withSelf(
            [](Core& core, const std::string& name, const std::string&, const std::string& newOwner) {
                if (newOwner.empty()) {
                    core.peerLeft(name);
                }
            });
        bus_ = BusConnection::open(parts_.bus, std::move(events));
    }

    void close(const std::string& why) {
        resumed_ = true;  // it cannot be resumed any more
        bus_.reset();
        for (const auto& [name, peer] : std::exchange(peers_, {})) {
            peer.invalidate(why);
        }
    }

 private:
    struct Peer {
        std::shared_ptr<DBusPeerChannel> channel;
        std::shared_ptr<DBusXPCConnection> connection;  // the service need not keep it

        // Also for a peer's end the connection object stays until its handler has been called.
        void invalidate(const std::string& why) const {
            channel->invalidateOnThread(why);
            channel->keepForQueued(connection);
        }
    };

    void requestName() {
        if (!bus_) {
            return;
        }
        // One rule for all peers: buses limit the number of rules.
        bus_->watchOwners("arg2=''");
        bus_->callBus("RequestName", {name_, kDoNotQueue}, withSelf([](Core& core, const DBusResult& result) {
                          if (core.bus_) {
                              core.nameAnswered(result);
                          }
                      }));
    }

    void nameAnswered(const DBusResult& result) {
        if (const auto* error = std::get_if<DBusError>(&result)) {
            failed(error->message);
        } else if (std::get<DBusArguments>(result) != DBusArguments{kPrimaryOwner}) {
            failed("the name is already taken by another process");
        } else {
            listening_ = true;
            TLOG_INFO("Listening as {}", name_);
            report(DBusListenerState::listening, {});
        }
    }

    void failed(const std::string& why) {
        TLOG_ERROR("Cannot listen as {} -- {}", name_, why);
        report(DBusListenerState::failed, why);
        close(why);
    }

    void lost(const std::string& why) {
        if (!bus_) {
            return;
        }
        if (!listening_) {
            failed(why);
            return;
        }
        TLOG_ERROR("No longer listening as {} -- {}", name_, why);
        report(DBusListenerState::lost, why);
        close(why);
    }

    void report(DBusListenerState state, const std::string& why) {
        if (parts_.onEvent) {
            events_->post(
                [handler = parts_.onEvent, event = DBusListenerEvent{name_, state, why}] { handler(event); });
        }
    }

    void received(IncomingCall call) {
        if (!bus_) {
            return;
        }
        auto peer = peers_.find(call.sender);
        if (peer == peers_.end()) {
            peer = peers_.emplace(call.sender, newPeer(call.sender)).first;
        }
        peer->second.channel->receivedOnThread(bus_, std::move(call));
    }

    Peer newPeer(const std::string& name) {
        const auto queue = parts_.createQueue();
        const auto channel = std::make_shared<DBusPeerChannel>(thread(), queue, bus_, name);
        const auto connection = std::make_shared<DBusXPCConnection>(channel);
        queue->post([weakListener = listener_, channel, connection] {
            const auto listener = weakListener.lock();
            const auto delegate = listener ? listener->delegate() : nullptr;
            channel->setAccepted(delegate &&
                                 delegate->listenerShouldAcceptNewConnection(*listener, connection));
        });
        bus_->askOwner(name, withSelf([name](Core& core, const std::string& owner) {
                           if (owner.empty()) {
                               core.peerLeft(name);
                           }
                       }));
        return {channel, connection};
    }

    void peerLeft(const std::string& name) {
        const auto peer = peers_.find(name);
        if (peer != peers_.end()) {
            const Peer gone = std::move(peer->second);
            peers_.erase(peer);
            gone.invalidate("the peer left the bus");
        }
    }

    const Parts parts_;
    const std::string name_;
    const std::shared_ptr<SerialQueue> events_;
    std::weak_ptr<DBusXPCListener> listener_;
    // None once closed; what had arrived before is still delivered then, and means nothing any more.
    std::shared_ptr<BusConnection> bus_;
    std::map<std::string, Peer> peers_;
    bool resumed_ = false;
    bool listening_ = false;
};

DBusXPCListener::DBusXPCListener(Parts parts, std::string machServiceName)
    : core_(std::make_shared<Core>(std::move(parts), std::move(machServiceName))) {}

DBusXPCListener::~DBusXPCListener() {
    core_->thread()->post([core = core_] { core->close("the listener is gone"); });
}

void DBusXPCListener::setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) {
    const std::lock_guard lock(mutex_);
    delegate_.swap(delegate);
}

std::shared_ptr<XPCListenerDelegate> DBusXPCListener::delegate() const {
    const std::lock_guard lock(mutex_);
    return delegate_.lock();
}

void DBusXPCListener::resume() {
    core_->thread()->post([core = core_, listener = weak_from_this()] { core->open(listener); });
}

void DBusXPCListener::invalidate() {
    core_->thread()->post([core = core_] { core->close("the listener was invalidated"); });
}

}  // namespace cmn
