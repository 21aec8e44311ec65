#include "DBusXPCListener.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "PeerChannel.h"
#include "WhileAlive.h"
#include "common/ScopedAction.h"
#include "common/log.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

// Arguments and answer of the bus's RequestName.
constexpr std::uint32_t kDoNotQueue = 4;
constexpr std::uint32_t kPrimaryOwner = 1;

constexpr std::chrono::seconds kRetryDelay{3};

// How often the bus is asked who a peer is, when it does not answer.
constexpr int kMostQuestionsAboutAPeer = 3;

// What a message may have before it is known what its sender may ask: as much as the longest admitted.
constexpr std::size_t kMostUnknownBytes = std::size_t{2} * 1024 * 1024 + 4096;

constexpr const char* kBusSignal =
    "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='{}',{}='{}'";

// What is behind the object that the service holds. What has no lock is of the loop's thread.
class Listener final : public XPCListener, public std::enable_shared_from_this<Listener> {
    template <typename Action>
    auto withSelf(Action action) {
        return WhileAlive(weak_from_this(), std::move(action));
    }

 public:
    Listener(ListenerParts parts, std::string name)
        : parts_(std::move(parts)), name_(std::move(name)), events_(parts_.createQueue()) {}

    // Once, before anybody else knows it. What is kept weakly outlives its object: that lets go of this one
    // itself.
    std::shared_ptr<XPCListener> makeObject() {
        std::shared_ptr<XPCListener> object(
            static_cast<XPCListener*>(this), [self = shared_from_this()](XPCListener*) mutable {
                std::exchange(self, nullptr)->closeLater("the listener is gone");
            });
        object_ = object;
        return object;
    }

    void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override {
        const std::lock_guard lock(mutex_);
        delegate_.swap(delegate);
    }
    void resume() override {
        parts_.bus.loop->post([self = shared_from_this()] {
            if (!std::exchange(self->resumed_, true)) {
                self->connect();
            }
        });
    }
    void invalidate() override { closeLater("the listener was invalidated"); }

 private:
    // One peer. What it sends waits until the bus has said who it is, and the service whether it is accepted.
    struct Peer {
        std::string name;
        Admission admission;
        std::deque<std::pair<bus::Question, std::shared_ptr<Place>>> waiting;
        std::shared_ptr<PeerChannel> channel;       // once it is known who it is
        std::shared_ptr<XPCConnection> connection;  // the service need not keep it
        bool decided = false;
        bool left = false;
    };
    using PeerRef = std::shared_ptr<Peer>;

    std::shared_ptr<XPCListenerDelegate> delegate() const {
        const std::lock_guard lock(mutex_);
        return delegate_.lock();
    }

    void closeLater(const char* why) {
        parts_.bus.loop->post([self = shared_from_this(), why] {
            self->resumed_ = true;  // it cannot be resumed any more
            self->closed_ = true;
            self->letGo(why);
        });
    }

    void connect() {
        bus_ = bus::Connection::open(
            parts_.bus.loop, parts_.bus.options,
            {withSelf([](Listener& self) { self.connected(); }),
             withSelf([](Listener& self, const std::string& why) { self.lost(why); }),
             withSelf([](Listener& self, const bus::Question& question) { self.received(question); })});
    }

    void connectAgain() {
        if (!closed_ && !bus_) {
            connect();
        }
    }

    void connected() {
        const auto installed = withSelf([](Listener& self, const std::optional<bus::Error>& error) {
            if (error && self.bus_) {
                self.lost(error->message);
            }
        });
        // One rule for all peers: buses limit the number of rules.
        leaves_ = bus_->subscribe(fmt::format(kBusSignal, "NameOwnerChanged", "arg2", ""),
                                  withSelf([](Listener& self, const bus::Message& signal) {
                                      const auto names = signal.read<std::string, std::string, std::string>();
                                      if (names && std::get<2>(*names).empty()) {
                                          self.peerLeft(std::get<0>(*names));
                                      }
                                  }),
                                  installed);
        nameLost_ = bus_->subscribe(fmt::format(kBusSignal, "NameLost", "arg0", name_),
                                    withSelf([](Listener& self, const bus::Message&) {
                                        if (self.listening_) {
                                            self.failed("the name was taken away", DBusListenerState::lost);
                                        }
                                    }),
                                    installed);
        requestName();
    }

    void requestName() {
        if (!bus_) {
            return;
        }
        bus_->askBus(
            "RequestName",
            withSelf([asked = std::weak_ptr(bus_)](Listener& self, const bus::Connection::Reply& reply) {
                if (self.bus_ && self.bus_ == asked.lock()) {
                    self.nameAnswered(reply ? reply->readOne<std::uint32_t>() : reply.error());
                }
            }),
            name_, kDoNotQueue);
    }

    void nameAnswered(const bus::Result<std::uint32_t>& answer) {
        if (!answer) {
            failed(answer.error().message, DBusListenerState::failed);
        } else if (*answer != kPrimaryOwner) {
            failed("the name is already taken by another process", DBusListenerState::failed);
        } else {
            listening_ = true;
            saidFailed_ = false;
            TLOG_INFO("Listening as {}", name_);
            report(DBusListenerState::listening, {});
        }
    }

    // The bus is there, the name is not to be had.
    void failed(const std::string& why, DBusListenerState state) {
        say(why, state);
        parts_.bus.loop->after(kRetryDelay, withSelf([](Listener& self) {
                                   if (!self.closed_ && !self.listening_) {
                                       self.requestName();
                                   }
                               }));
    }

    void lost(const std::string& why) {
        if (!bus_) {
            return;
        }
        say(why, listening_ ? DBusListenerState::lost : DBusListenerState::failed);
        letGo(why);
        parts_.bus.loop->after(kRetryDelay, withSelf([](Listener& self) { self.connectAgain(); }));
    }

    // Once for each time that the service cannot be reached.
    void say(const std::string& why, DBusListenerState state) {
        listening_ = false;
        if (std::exchange(saidFailed_, true)) {
            return;
        }
        TLOG_ERROR("{} as {} -- {}",
                   state == DBusListenerState::lost ? "No longer listening" : "Cannot listen", name_, why);
        report(state, why);
    }

    void letGo(const std::string& why) {
        listening_ = false;
        leaves_.reset();
        nameLost_.reset();
        for (const auto& [name, peer] : std::exchange(peers_, {})) {
            peer->waiting.clear();
            if (peer->channel) {
                peer->channel->end(why, peer->connection);
            }
        }
        // What had arrived before may still be answered, and means nothing any more.
        if (const auto bus = std::exchange(bus_, nullptr)) {
            bus->close(why);
        }
    }

    void report(DBusListenerState state, const std::string& why) {
        if (parts_.onEvent) {
            events_->post(
                [handler = parts_.onEvent, event = DBusListenerEvent{name_, state, why}] { handler(event); });
        }
    }

    void received(const bus::Question& question) {
        if (!bus_) {
            return;
        }
        const std::string sender(question.message().sender());
        PeerRef& entry = peers_[sender];
        if (!entry) {
            entry = std::make_shared<Peer>();
            entry->name = sender;
            entry->admission.setUser(strangers_);
            askWhoItIs(entry, kMostQuestionsAboutAPeer);
        }
        const PeerRef peer = entry;
        if (peer->decided) {
            deliver(*peer, question);
            return;
        }
        auto place = peer->admission.admit(question.message(), kMostUnknownBytes);
        if (place) {
            peer->waiting.emplace_back(question, std::move(*place));
        } else {
            peer->admission.refuse(question, sender, place.error());
        }
    }

    void deliver(Peer& peer, const bus::Question& question) {
        auto found = peer.channel->find(question.message());
        if (!found) {
            peer.admission.refuse(question, peer.name, found.error());
            return;
        }
        auto place = peer.admission.admit(question.message(), found->method->mostBytes);
        if (!place) {
            peer.admission.refuse(question, peer.name, place.error());
            return;
        }
        peer.channel->deliver(question, std::move(*found), std::move(*place));
    }

    void askWhoItIs(const PeerRef& peer, int times) {
        bus_->askCredentials(
            peer->name, withSelf([peer, times](Listener& self, const bus::Result<bus::Credentials>& result) {
                if (result) {
                    self.known(peer, *result);
                } else if (result.error().is(bus::error::kTimeout) && times > 1 && self.bus_) {
                    self.askWhoItIs(peer, times - 1);
                } else {
                    self.unknown(peer, result.error().message);
                }
            }));
    }

    bool isHere(const PeerRef& peer) const {
        const auto found = peers_.find(peer->name);
        return found != peers_.end() && found->second == peer;
    }

    // Nobody is served who is not known.
    void unknown(const PeerRef& peer, const std::string& why) {
        if (!isHere(peer)) {
            return;
        }
        for (const auto& [question, place] : peer->waiting) {
            peer->admission.refuse(question, peer->name,
                                   {bus::error::kAccessDenied, "It is not known who asks: " + why});
        }
        peers_.erase(peer->name);
    }

    void known(const PeerRef& peer, const bus::Credentials& credentials) {
        if (!isHere(peer)) {
            return;
        }
        auto& backlog = users_[credentials.userID];
        auto shared = backlog.lock();
        if (!shared) {
            shared = std::make_shared<Backlog>();
            backlog = shared;
        }
        peer->admission.setUser(std::move(shared));
        XPCPeer asker;
        asker.userID = credentials.userID;
        asker.processID = credentials.processID;
        asker.connectionID = ++lastConnection_;
        const auto queue = parts_.createQueue();
        peer->channel = std::make_shared<PeerChannel>(
            PeerChannel::Parts{bus_, parts_.bus.loop, queue, parts_.bus.replyDeadline}, peer->name, asker);
        peer->connection = peer->channel->makeConnection();
        queue->post([weakObject = object_, peer, channel = peer->channel, connection = peer->connection,
                     loop = parts_.bus.loop,
                     decided = withSelf([](Listener& self, const PeerRef& which) { self.decided(which); })] {
            const ScopedAction tell([&] { loop->post([decided, peer] { decided(peer); }); });
            const auto object = weakObject.lock();
            const auto delegate = object ? static_cast<Listener&>(*object).delegate() : nullptr;
            channel->setAccepted(delegate &&
                                 delegate->listenerShouldAcceptNewConnection(*object, connection));
        });
    }

    void decided(const PeerRef& peer) {
        peer->decided = true;
        auto waiting = std::exchange(peer->waiting, {});
        while (!waiting.empty()) {
            waiting.front().second.reset();  // it gets a place of its own
            deliver(*peer, waiting.front().first);
            waiting.pop_front();
        }
        if (peer->left) {
            ended(peer);
        }
    }

    void peerLeft(const std::string& name) {
        const auto found = peers_.find(name);
        if (found == peers_.end()) {
            return;
        }
        const PeerRef peer = found->second;
        peer->left = true;
        if (peer->decided) {
            ended(peer);
        }
        // Else its messages are still to be delivered: it told them before it left.
    }

    void ended(const PeerRef& peer) {
        if (isHere(peer)) {
            peers_.erase(peer->name);
        }
        std::erase_if(users_, [](const auto& user) { return user.second.expired(); });
        // Also for a peer's end the connection object stays until its handler has been called.
        peer->channel->end("the peer left the bus", peer->connection);
    }

    const ListenerParts parts_;
    const std::string name_;
    const std::shared_ptr<SerialQueue> events_;
    const std::shared_ptr<Backlog> strangers_ = std::make_shared<Backlog>();
    std::weak_ptr<XPCListener> object_;
    std::shared_ptr<bus::Connection> bus_;  // none between a loss and the next try
    std::shared_ptr<bus::Subscription> leaves_;
    std::shared_ptr<bus::Subscription> nameLost_;
    std::map<std::string, PeerRef> peers_;
    std::map<uid_t, std::weak_ptr<Backlog>> users_;
    std::uint64_t lastConnection_ = 0;
    bool resumed_ = false;
    bool closed_ = false;
    bool listening_ = false;
    bool saidFailed_ = false;

    mutable std::mutex mutex_;  // guards what follows
    std::weak_ptr<XPCListenerDelegate> delegate_;
};

}  // namespace

std::shared_ptr<XPCListener> MakeListener(ListenerParts parts, std::string machServiceName) {
    return std::make_shared<Listener>(std::move(parts), std::move(machServiceName))->makeObject();
}

}  // namespace cmn
