#include <memory>
#include <string>
#include <utility>

#include "ServiceStubs.h"
#include "common/log.h"
#include "common/utf8.h"
#include "xpccommon/UserAgentProtocol.h"

// How the user agent service travels over D-Bus. Names and signatures are a contract with other programs.
namespace cmn {

namespace {

constexpr const char* kSetURLExtractor = "SetURLExtractor";
constexpr const char* kSendURL = "SendURL";
constexpr const char* kGetURL = "GetURL";

const DBusDescription& UserAgentDescription() {
    static const DBusDescription description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.UserAgent",
                                 {{kVersionMethod, "", "s"},
                                  {kSetURLExtractor, "o", "b", {"extractor"}},
                                  {kSendURL, "ssi", "", {"url", "browser", "pid"}, true}}});
    return description;
}

const DBusDescription& URLExtractorDescription() {
    static const DBusDescription description = std::make_shared<DBusInterfaceDescription>(
        DBusInterfaceDescription{"com.tessarin.URLExtractor", {{kGetURL, "s", "s", {"browser"}}}});
    return description;
}

// The agent's extractor, as the daemon holds it.
class URLExtractorProxy final : public URLExtractor {
 public:
    explicit URLExtractorProxy(DBusRemoteObject remote) : remote_(std::move(remote)) {}

    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        remote_.ask<std::string>(kGetURL, {browser}, std::move(reply));
    }

 private:
    const DBusRemoteObject remote_;
};

void LogExtractorError(const RemoteError& error) {
    TLOG_WARN("GetURL -- failed: {}", EscapeControls(error.description));
}

DBusObjectHandler CreateURLExtractorHandler(std::shared_ptr<URLExtractor> extractor) {
    return [extractor = std::move(extractor)](const std::shared_ptr<DBusChannel>&, const std::string&,
                                              const DBusArguments& arguments, const DBusReply& reply) {
        extractor->getURL(std::get<std::string>(arguments[0]), SendValue<std::string>(reply));
    };
}

// The service, as the agent holds it.
class UserAgentProxy final : public UserAgentProtocol {
 public:
    explicit UserAgentProxy(DBusRemoteObject remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask<std::string>(kVersionMethod, {}, std::move(reply));
    }
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override {
        const DBusObjectPath path = remote_.channel()->exportObject(extractor, URLExtractorDescription(),
                                                                    CreateURLExtractorHandler(extractor));
        remote_.ask<bool>(kSetURLExtractor, {path}, std::move(reply));
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        remote_.call(kSendURL, {url, browser, processID}, nullptr);
    }

 private:
    const DBusRemoteObject remote_;
};

void DeliverToUserAgent(UserAgentProtocol& service, const std::shared_ptr<DBusChannel>& peer,
                        const std::string& method, const DBusArguments& arguments, const DBusReply& reply) {
    if (method == kVersionMethod) {
        service.version(SendValue<std::string>(reply));
    } else if (method == kSetURLExtractor) {
        service.setURLExtractor(CreatePassedObject<URLExtractorProxy>(
                                    peer, arguments[0], URLExtractorDescription(), &LogExtractorError),
                                SendValue<bool>(reply));
    } else if (method == kSendURL) {
        service.sendURL(std::get<std::string>(arguments[0]), std::get<std::string>(arguments[1]),
                        std::get<std::int32_t>(arguments[2]));
    }
}

}  // namespace

std::shared_ptr<const XPCInterface> CreateUserAgentInterface() {
    return std::make_shared<DBusServiceInterface<UserAgentProtocol, UserAgentProxy>>(
        "/com/tessarin/UserAgent", UserAgentDescription(), &DeliverToUserAgent);
}

}  // namespace cmn
