#include "EchoProtocol.h"

#include <utility>

#include "linux_usercommon/DBusXPCInterface.h"

namespace {

using cmn::DBusArguments;
using cmn::DBusChannel;
using Description = std::shared_ptr<const cmn::DBusInterfaceDescription>;

const Description& EchoDescription() {
    static const Description description = std::make_shared<cmn::DBusInterfaceDescription>(
        cmn::DBusInterfaceDescription{kEchoService,
                                      {{"Version", "", "s"},
                                       {"Records", "s", "aa{ss}", {"text"}},
                                       {"Names", "", "as"},
                                       {"Flags", "", "a{sb}"},
                                       {"Number", "s", "i", {"text"}},
                                       {"Note", "s", "", {"text"}, true},
                                       {"Check", "so", "", {"text", "delegate"}, true}}});
    return description;
}

const Description& DelegateDescription() {
    static const Description description = std::make_shared<cmn::DBusInterfaceDescription>(
        cmn::DBusInterfaceDescription{"com.example.EchoDelegate", {{"DidCheck", "b", "", {"result"}, true}}});
    return description;
}

void CallMethod(DBusChannel& channel, const std::string& path, const Description& description,
                const char* method, DBusArguments arguments, DBusChannel::ReplyHandler onReply,
                cmn::RemoteErrorHandler onError) {
    channel.call(path, *description, *description->find(method), std::move(arguments), std::move(onReply),
                 std::move(onError));
}

class DelegateProxy : public EchoDelegate {
 public:
    DelegateProxy(std::shared_ptr<DBusChannel> channel, std::string path)
        : channel_(std::move(channel)), path_(std::move(path)) {}

    void didCheck(bool result) override {
        CallMethod(*channel_, path_, DelegateDescription(), "DidCheck", {result}, nullptr, nullptr);
    }

 private:
    const std::shared_ptr<DBusChannel> channel_;
    const std::string path_;
};

class EchoProxy : public EchoProtocol {
 public:
    EchoProxy(std::shared_ptr<DBusChannel> channel, cmn::RemoteErrorHandler onError)
        : channel_(std::move(channel)), onError_(std::move(onError)) {}

    void version(std::function<void(const std::string&)> reply) override {
        call("Version", {}, std::move(reply));
    }
    void records(const std::string& text, std::function<void(const Records&)> reply) override {
        call("Records", {text}, std::move(reply));
    }
    void names(std::function<void(const std::vector<std::string>&)> reply) override {
        call("Names", {}, std::move(reply));
    }
    void flags(std::function<void(const Flags&)> reply) override { call("Flags", {}, std::move(reply)); }
    void number(const std::string& text, std::function<void(std::int32_t)> reply) override {
        call("Number", {text}, std::move(reply));
    }
    void note(const std::string& text) override { callOneWay("Note", {text}); }
    void check(const std::string& text, std::shared_ptr<EchoDelegate> delegate) override {
        // The delegate is held weakly, as a client that is its own delegate wants it.
        const auto path = channel_->exportObject(
            delegate, DelegateDescription(),
            [weak = std::weak_ptr(delegate)](const auto&, const auto&, const DBusArguments& arguments,
                                             const auto&) {
                if (const auto alive = weak.lock()) {
                    alive->didCheck(std::get<bool>(arguments[0]));
                }
            });
        callOneWay("Check", {text, path});
    }

 private:
    template <typename Value>
    void call(const char* method, DBusArguments arguments, std::function<void(Value)> reply) {
        CallMethod(
            *channel_, kEchoPath, EchoDescription(), method, std::move(arguments),
            [reply = std::move(reply)](const DBusArguments& answer) {
                reply(std::get<std::decay_t<Value>>(answer[0]));
            },
            onError_);
    }
    void callOneWay(const char* method, DBusArguments arguments) {
        CallMethod(*channel_, kEchoPath, EchoDescription(), method, std::move(arguments), nullptr, onError_);
    }

    const std::shared_ptr<DBusChannel> channel_;
    const cmn::RemoteErrorHandler onError_;
};

void Deliver(EchoProtocol& echo, const std::shared_ptr<DBusChannel>& peer, const std::string& method,
             const DBusArguments& arguments, const cmn::DBusReply& reply) {
    const auto text = [&] { return std::get<std::string>(arguments[0]); };
    if (method == "Version") {
        echo.version([reply](const auto& value) { reply({value}); });
    } else if (method == "Records") {
        echo.records(text(), [reply](const auto& value) { reply({value}); });
    } else if (method == "Names") {
        echo.names([reply](const auto& value) { reply({value}); });
    } else if (method == "Flags") {
        echo.flags([reply](const auto& value) { reply({value}); });
    } else if (method == "Number") {
        echo.number(text(), [reply](std::int32_t value) { reply({value}); });
    } else if (method == "Note") {
        echo.note(text());
    } else if (method == "Check") {
        const auto& path = std::get<cmn::DBusObjectPath>(arguments[1]);
        echo.check(text(), path.isNone() ? nullptr : std::make_shared<DelegateProxy>(peer, path.value));
    }
}

class EchoDBusInterface : public cmn::DBusXPCInterface {
 public:
    const std::string& objectPath() const override { return path_; }
    const Description& description() const override { return EchoDescription(); }
    std::shared_ptr<cmn::XPCVersioning> createProxy(std::shared_ptr<DBusChannel> channel,
                                                    cmn::RemoteErrorHandler onError) const override {
        return std::make_shared<EchoProxy>(std::move(channel), std::move(onError));
    }
    cmn::DBusObjectHandler createHandler(const std::shared_ptr<cmn::XPCVersioning>& object) const override {
        return [echo = std::dynamic_pointer_cast<EchoProtocol>(object)](
                   const auto& peer, const auto& method, const auto& arguments, const auto& reply) {
            Deliver(*echo, peer, method, arguments, reply);
        };
    }

 private:
    const std::string path_ = kEchoPath;
};

}  // namespace

std::shared_ptr<const cmn::XPCInterface> CreateEchoInterface() {
    return std::make_shared<EchoDBusInterface>();
}
