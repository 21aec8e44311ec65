#include "ClientChannel.h"

#include <utility>

#include "WhileAlive.h"
#include "common/SystemUtils.h"
#include "common/log.h"
#include "linux_bus/WellKnown.h"

namespace cmn {

namespace {

constexpr std::size_t kMostParked = 10'000;

// The system's own bus is run by root or by the user that is made for it. The database of users may take its
// time.
bool IsUserOfSystemBus(UserId user) {
    return GetUIDByName("messagebus") == user || GetUIDByName("dbus") == user;
}

}  // namespace

ClientChannel::ClientChannel(BusSettings settings, std::shared_ptr<SerialQueue> queue, std::string service)
    : BusChannel(std::move(queue)), settings_(std::move(settings)), service_(std::move(service)) {}

void ClientChannel::resume() {
    publishExportedObject();
    const std::lock_guard lock(mutex_);
    if (state_ != State::created) {
        return;
    }
    state_ = State::connecting;
    const std::weak_ptr<ClientChannel> weakSelf = std::static_pointer_cast<ClientChannel>(shared_from_this());
    bus_ = bus::Connection::open(
        settings_.loop, settings_.options,
        {WhileAlive(weakSelf, [](ClientChannel& self) { self.watchService(); }),
         WhileAlive(weakSelf, [](ClientChannel& self, const std::string& why) { self.end(why, nullptr); }),
         WhileAlive(weakSelf,
                    [](ClientChannel& self, const bus::Question& question) { self.asked(question); })});
}

void ClientChannel::end(const std::string& why, std::shared_ptr<void> connection) {
    std::deque<ServiceRequest> parked;
    std::shared_ptr<bus::Connection> bus;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::ended) {
            return;
        }
        state_ = State::ended;
        whyEnded_ = why;
        parked.swap(parked_);
        bus.swap(bus_);
        peer_.reset();
    }
    TLOG_DEBUG("The connection with {} has ended: {}", service_, why);
    const bus::Deadline now = bus::Clock::now();
    std::erase_if(parked, [now](const ServiceRequest& request) { return request.deadline <= now; });
    for (const ServiceRequest& request : parked) {
        fail(request, {bus::error::kDisconnected, "The connection has ended: " + why});
    }
    if (bus) {
        bus->close(why);
    }
    // Behind the calls that fail now; without the connection to the bus they would be dropped.
    settings_.loop->post([self = std::static_pointer_cast<ClientChannel>(shared_from_this()),
                          bus = std::move(bus), connection = std::move(connection)]() mutable {
        self->ownerChanges_.reset();
        bus.reset();
        self->tellInvalidation(std::move(connection));
    });
}

void ClientChannel::abandon() {
    BusChannel::abandon();
    std::deque<ServiceRequest> parked;
    std::shared_ptr<bus::Connection> bus;
    const std::lock_guard sending(sendingMutex_);
    {
        const std::lock_guard lock(mutex_);
        parked.swap(parked_);
        bus = bus_;
    }
    if (bus) {
        bus->cancelAll();
    }
}

std::optional<XPCPeer> ClientChannel::peer() const {
    const std::lock_guard lock(mutex_);
    return peer_;
}

void ClientChannel::watchService() {
    std::shared_ptr<bus::Connection> bus;
    {
        const std::lock_guard lock(mutex_);
        bus = bus_;
    }
    if (!bus) {
        return;
    }
    const std::weak_ptr<ClientChannel> weakSelf = std::static_pointer_cast<ClientChannel>(shared_from_this());
    ownerChanges_ = bus->subscribe(
        "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
        "member='NameOwnerChanged',arg0='" +
            service_ + "'",
        WhileAlive(weakSelf,
                   [](ClientChannel& self, const bus::Message& signal) {
                       if (const auto names = signal.read<std::string, std::string, std::string>()) {
                           self.ownerChanged(std::get<2>(*names));
                       }
                   }),
        WhileAlive(weakSelf, [](ClientChannel& self, const std::optional<bus::Error>& error) {
            if (error) {
                self.end(error->message, nullptr);
            }
        }));
    bus->askOwner(service_, WhileAlive(weakSelf, [](ClientChannel& self,
                                                    const bus::Result<std::optional<std::string>>& owner) {
                      bool connecting = false;
                      {
                          const std::lock_guard lock(self.mutex_);
                          connecting = self.state_ == State::connecting;
                      }
                      // A change that was reported meanwhile is at least as new as this answer.
                      if (!connecting) {
                          return;
                      }
                      if (!owner) {
                          self.end(owner.error().message, nullptr);
                      } else if (!*owner) {
                          self.end("nobody owns the name", nullptr);
                      } else {
                          self.ownerChanged(**owner);
                      }
                  }));
}

void ClientChannel::ownerChanged(const std::string& owner) {
    bool interrupted = false;
    std::shared_ptr<bus::Connection> bus;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::ended || state_ == State::created || owner == owner_) {
            return;
        }
        interrupted = !owner_.empty();
        owner_ = owner;
        peer_.reset();
        state_ = owner.empty() ? State::interrupted : State::connecting;
        bus = bus_;
    }
    if (interrupted) {
        bus->failAll({bus::error::kNoReply, "The service left the bus"});
        // Behind the calls that fail now.
        settings_.loop->post([self = std::static_pointer_cast<ClientChannel>(shared_from_this())] {
            self->tellInterruption();
        });
    }
    if (!owner.empty()) {
        askWhoOwnsIt(owner);
        sendParked();
    }
}

void ClientChannel::askWhoOwnsIt(const std::string& owner) {
    const std::weak_ptr<ClientChannel> weakSelf = std::static_pointer_cast<ClientChannel>(shared_from_this());
    std::shared_ptr<bus::Connection> bus;
    {
        const std::lock_guard lock(mutex_);
        bus = bus_;
    }
    if (!bus) {
        return;
    }
    bus->askCredentials(
        owner, WhileAlive(weakSelf, [owner, busUser = bus->busUser()](
                                        ClientChannel& self, const bus::Result<bus::Credentials>& result) {
            if (!result) {
                return;
            }
            XPCPeer peer;
            peer.userID = result->userID;
            peer.processID = result->processID;
            if (!self.settings_.isSystemBus || busUser == 0U) {
                self.setPeer(owner, peer);
                return;
            }
            // Not in the loop, and before the answers that are delivered there.
            self.queue()->post(
                [self = std::static_pointer_cast<ClientChannel>(self.shared_from_this()), owner, peer,
                 busUser = busUser.value_or(static_cast<uid_t>(-1))]() mutable {
                    peer.userID = IsUserOfSystemBus(busUser) ? peer.userID : busUser;
                    self->setPeer(owner, peer);
                },
                Lane::slow);
        }));
}

void ClientChannel::setPeer(const std::string& owner, const XPCPeer& peer) {
    const std::lock_guard lock(mutex_);
    if (state_ != State::ended && owner_ == owner) {
        peer_ = peer;
    }
}

void ClientChannel::sendParked() {
    for (;;) {
        ServiceRequest request;
        std::shared_ptr<bus::Connection> bus;
        std::string owner;
        const std::lock_guard sending(sendingMutex_);
        {
            const std::lock_guard lock(mutex_);
            if (state_ != State::connecting) {
                return;
            }
            if (parked_.empty()) {
                state_ = State::active;
                return;
            }
            request = std::move(parked_.front());
            parked_.pop_front();
            bus = bus_;
            owner = owner_;
        }
        if (bus::Clock::now() < request.deadline) {
            send(*bus, owner, std::move(request), settings_.replyDeadline);
        }
    }
}

void ClientChannel::call(ServiceRequest request) {
    std::shared_ptr<bus::Connection> bus;
    std::string owner;
    bus::Error error;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::ended) {
            error = {bus::error::kDisconnected, "The connection has ended: " + whyEnded_};
        } else if (state_ == State::interrupted) {
            error = {bus::error::kServiceUnknown, "The service has left the bus"};
        } else if (state_ == State::active) {
            bus = bus_;
            owner = owner_;
        } else if (parked_.size() < kMostParked) {
            parked_.push_back(std::move(request));
            return;
        } else {
            error = {bus::error::kLimitsExceeded, "Too many messages are waiting"};
        }
    }
    if (bus) {
        send(*bus, owner, std::move(request), settings_.replyDeadline);
    } else {
        fail(request, error);
    }
}

void ClientChannel::asked(const bus::Question& question) {
    const bus::Message& message = question.message();
    std::string owner;
    {
        const std::lock_guard lock(mutex_);
        owner = owner_;
    }
    if (message.sender() != owner || owner.empty()) {
        admission_.refuse(question, message.sender(),
                          {bus::error::kAccessDenied, "Only the owner of " + service_ + " may call"});
        return;
    }
    auto found = objects().find(message);
    if (!found) {
        admission_.refuse(question, message.sender(), found.error());
        return;
    }
    auto place = admission_.admit(message, found->method->mostBytes);
    if (!place) {
        admission_.refuse(question, message.sender(), place.error());
        return;
    }
    deliver(question, std::move(*found), std::move(*place));
}

}  // namespace cmn
