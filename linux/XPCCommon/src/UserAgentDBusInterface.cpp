#include <memory>
#include <string>
#include <utility>

#include "common/log.h"
#include "linux_usercommon/DBusXPCInterface.h"
#include "xpccommon/UserAgentProtocol.h"

// How the user agent service travels over D-Bus. Names and signatures are a contract with other programs.
namespace cmn {

namespace {

using Description = std::shared_ptr<const DBusInterfaceDescription>;

constexpr const char* kVersion = "Version";
constexpr const char* kSetURLExtractor = "SetURLExtractor";
constexpr const char* kSendURL = "SendURL";
constexpr const char* kGetURL = "GetURL";

const Description& UserAgentDescription() {
    static const Description description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.UserAgent",
                                 {{kVersion, "", "s"},
                                  {kSetURLExtractor, "o", "b", {"extractor"}},
                                  {kSendURL, "ssi", "", {"url", "browser", "pid"}, true}}});
    return description;
}

const Description& URLExtractorDescription() {
    static const Description description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.URLExtractor", {{kGetURL, "s", "s", {"browser"}}}});
    return description;
}

// The agent's extractor, as the daemon holds it.
class URLExtractorProxy final : public URLExtractor {
 public:
    URLExtractorProxy(std::shared_ptr<DBusChannel> channel, std::string path)
        : channel_(std::move(channel)), path_(std::move(path)) {}

    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        const auto& description = *URLExtractorDescription();
        channel_->call(
            path_, description, *description.find(kGetURL), {browser},
            [reply = std::move(reply)](const DBusArguments& answer) {
                reply(std::get<std::string>(answer[0]));
            },
            [](const RemoteError& error) { TLOG_WARN("GetURL -- failed: {}", error.description); });
    }

 private:
    const std::shared_ptr<DBusChannel> channel_;
    const std::string path_;
};

DBusObjectHandler CreateURLExtractorHandler(std::shared_ptr<URLExtractor> extractor) {
    return [extractor = std::move(extractor)](const std::shared_ptr<DBusChannel>&, const std::string&,
                                              const DBusArguments& arguments, const DBusReply& reply) {
        extractor->getURL(std::get<std::string>(arguments[0]),
                          [reply](const std::string& url) { reply({url}); });
    };
}

// The service, as the agent holds it.
class UserAgentProxy final : public UserAgentProtocol {
 public:
    UserAgentProxy(std::string path, std::shared_ptr<DBusChannel> channel, RemoteErrorHandler onError)
        : path_(std::move(path)), channel_(std::move(channel)), onError_(std::move(onError)) {}

    void version(std::function<void(const std::string&)> reply) override {
        call(kVersion, {}, [reply = std::move(reply)](const DBusArguments& answer) {
            reply(std::get<std::string>(answer[0]));
        });
    }

    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override {
        const DBusObjectPath path = channel_->exportObject(extractor, URLExtractorDescription(),
                                                           CreateURLExtractorHandler(extractor));
        call(kSetURLExtractor, {path},
             [reply = std::move(reply)](const DBusArguments& answer) { reply(std::get<bool>(answer[0])); });
    }

    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        call(kSendURL, {url, browser, processID}, nullptr);
    }

 private:
    void call(const char* method, DBusArguments arguments, DBusChannel::ReplyHandler onReply) {
        const auto& description = *UserAgentDescription();
        channel_->call(path_, description, *description.find(method), std::move(arguments),
                       std::move(onReply), onError_);
    }

    const std::string path_;
    const std::shared_ptr<DBusChannel> channel_;
    const RemoteErrorHandler onError_;
};

void DeliverToUserAgent(UserAgentProtocol& service, const std::shared_ptr<DBusChannel>& peer,
                        const std::string& method, const DBusArguments& arguments, const DBusReply& reply) {
    if (method == kVersion) {
        service.version([reply](const std::string& version) { reply({version}); });
    } else if (method == kSetURLExtractor) {
        const auto& path = std::get<DBusObjectPath>(arguments[0]);
        service.setURLExtractor(
            path.isNone() ? nullptr : std::make_shared<URLExtractorProxy>(peer, path.value),
            [reply](bool accepted) { reply({accepted}); });
    } else if (method == kSendURL) {
        service.sendURL(std::get<std::string>(arguments[0]), std::get<std::string>(arguments[1]),
                        std::get<std::int32_t>(arguments[2]));
    }
}

class UserAgentDBusInterface final : public DBusXPCInterface {
 public:
    const std::string& objectPath() const override { return objectPath_; }
    const Description& description() const override { return UserAgentDescription(); }

    std::shared_ptr<XPCVersioning> createProxy(std::shared_ptr<DBusChannel> channel,
                                               RemoteErrorHandler onError) const override {
        return std::make_shared<UserAgentProxy>(objectPath_, std::move(channel), std::move(onError));
    }

    DBusObjectHandler createHandler(const std::shared_ptr<XPCVersioning>& object) const override {
        const auto service = std::dynamic_pointer_cast<UserAgentProtocol>(object);
        if (!service) {
            return nullptr;
        }
        return [service](const std::shared_ptr<DBusChannel>& peer, const std::string& method,
                         const DBusArguments& arguments, const DBusReply& reply) {
            DeliverToUserAgent(*service, peer, method, arguments, reply);
        };
    }

 private:
    const std::string objectPath_ = "/com/tessarin/UserAgent";
};

}  // namespace

std::shared_ptr<const XPCInterface> CreateUserAgentInterface() {
    return std::make_shared<UserAgentDBusInterface>();
}

}  // namespace cmn
