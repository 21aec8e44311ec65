#pragma once

#include <memory>
#include <string>
#include <utility>

#include "linux_usercommon/DBusXPCInterface.h"

// What the typed stubs of every service have in common.
namespace cmn {

// Every service answers it.
inline constexpr const char* kVersionMethod = "Version";

using DBusDescription = std::shared_ptr<const DBusInterfaceDescription>;

// One remote object and the interface it is called by.
class DBusRemoteObject {
 public:
    DBusRemoteObject(std::shared_ptr<DBusChannel> channel, std::string path, DBusDescription description,
                     RemoteErrorHandler onError)
        : channel_(std::move(channel)),
          path_(std::move(path)),
          description_(std::move(description)),
          onError_(std::move(onError)) {}

    // A method of the description. With an empty `onReply` nobody looks at the answer.
    void call(const char* method, DBusArguments arguments, DBusChannel::ReplyHandler onReply) const {
        channel_->call(path_, *description_, *description_->find(method), std::move(arguments),
                       std::move(onReply), onError_);
    }

    // The same for a method that answers with one value, which `reply` takes.
    template <typename Value, typename Reply>
    void ask(const char* method, DBusArguments&& arguments, Reply reply) const {
        call(method, std::move(arguments), [reply = std::move(reply)](DBusArguments answer) {
            if (reply) {
                reply(std::get<Value>(std::move(answer[0])));
            }
        });
    }

    const std::shared_ptr<DBusChannel>& channel() const { return channel_; }

 private:
    const std::shared_ptr<DBusChannel> channel_;
    const std::string path_;
    const DBusDescription description_;
    const RemoteErrorHandler onError_;
};

// The proxy of an object that a peer passed by its path; null when it passed none.
template <typename Proxy>
std::shared_ptr<Proxy> CreatePassedObject(const std::shared_ptr<DBusChannel>& peer, const DBusValue& path,
                                          const DBusDescription& description, RemoteErrorHandler onError) {
    const auto& passed = std::get<DBusObjectPath>(path);
    return passed.isNone() ? nullptr
                           : std::make_shared<Proxy>(
                                 DBusRemoteObject(peer, passed.value, description, std::move(onError)));
}

// A service's interface: `Proxy` is what its clients hold, `deliver` calls its object.
template <typename Protocol, typename Proxy>
class DBusServiceInterface final : public DBusXPCInterface {
 public:
    using Deliver = void (*)(Protocol& service, const std::shared_ptr<DBusChannel>& peer,
                             const std::string& method, const DBusArguments& arguments,
                             const DBusReply& reply);

    DBusServiceInterface(std::string objectPath, DBusDescription description, Deliver deliver)
        : objectPath_(std::move(objectPath)), description_(std::move(description)), deliver_(deliver) {}

    const std::string& objectPath() const override { return objectPath_; }
    const DBusDescription& description() const override { return description_; }

    std::shared_ptr<XPCVersioning> createProxy(std::shared_ptr<DBusChannel> channel,
                                               RemoteErrorHandler onError) const override {
        return std::make_shared<Proxy>(
            DBusRemoteObject(std::move(channel), objectPath_, description_, std::move(onError)));
    }

    DBusObjectHandler createHandler(const std::shared_ptr<XPCVersioning>& object) const override {
        const auto service = std::dynamic_pointer_cast<Protocol>(object);
        if (!service) {
            return nullptr;
        }
        return
            [service, deliver = deliver_](const std::shared_ptr<DBusChannel>& peer, const std::string& method,
                                          const DBusArguments& arguments, const DBusReply& reply) {
                deliver(*service, peer, method, arguments, reply);
            };
    }

 private:
    const std::string objectPath_;
    const DBusDescription description_;
    const Deliver deliver_;
};

// A reply function that sends one value.
template <typename Value>
auto SendValue(const DBusReply& reply) {
    return [reply](Value value) {
        DBusArguments arguments;
        arguments.emplace_back(std::move(value));
        reply(std::move(arguments));
    };
}

}  // namespace cmn
