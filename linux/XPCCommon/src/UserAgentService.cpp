#include <memory>
#include <string>
#include <utility>

#include "common/log.h"
#include "common/utf8.h"
#include "linux_usercommon/ServiceTable.h"
#include "xpccommon/UserAgentProtocol.h"

// How the user agent service travels over the bus. Names and signatures are a contract with other programs.
namespace cmn {

namespace {

constexpr std::size_t kMostURLBytes = std::size_t{2} * 1024 * 1024;  // reported, or asked for

}  // namespace

template <>
const ServiceTable<UserAgentProtocol>& TableOf<UserAgentProtocol>() {
    using Service = UserAgentProtocol;
    static const ServiceTable<Service> table(
        "com.tessarin.UserAgent",
        {Row<&Service::version, Service>("Version"),
         Row<&Service::setURLExtractor>("SetURLExtractor", {.inNames = {"extractor"}}),
         Row<&Service::sendURL>("SendURL",
                                {.inNames = {"url", "browser", "pid"}, .mostBytes = kMostURLBytes})});
    return table;
}

template <>
const ServiceTable<URLExtractor>& TableOf<URLExtractor>() {
    static const ServiceTable<URLExtractor> table(
        "com.tessarin.URLExtractor", {Row<&URLExtractor::getURL>("GetURL", {.inNames = {"browser"},
                                                                            .mostAnswerBytes = kMostURLBytes,
                                                                            .deadline = kGetURLDeadline})});
    return table;
}

namespace {

// The agent's extractor, as the daemon holds it.
class URLExtractorProxy final : public URLExtractor {
 public:
    explicit URLExtractorProxy(RemoteObject<URLExtractor> remote) : remote_(std::move(remote)) {}

    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        remote_.ask<&URLExtractor::getURL>(std::move(reply), browser);
    }

 private:
    const RemoteObject<URLExtractor> remote_;
};

// The service, as the agent holds it.
class UserAgentProxy final : public UserAgentProtocol {
 public:
    using Service = UserAgentProtocol;

    explicit UserAgentProxy(RemoteObject<Service> remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask<&Service::version>(std::move(reply));
    }
    void setURLExtractor(std::shared_ptr<URLExtractor> extractor, std::function<void(bool)> reply) override {
        remote_.ask<&Service::setURLExtractor>(std::move(reply), extractor);
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        remote_.tell<&Service::sendURL>(url, browser, processID);
    }

 private:
    const RemoteObject<Service> remote_;
};

}  // namespace

template <>
struct PassedObject<URLExtractor> {
    static ServiceHandler Handler(const std::shared_ptr<URLExtractor>& extractor) {
        return TableOf<URLExtractor>().handler(extractor);
    }
    static std::shared_ptr<URLExtractor> Proxy(RemoteObject<URLExtractor> remote) {
        return std::make_shared<URLExtractorProxy>(std::move(remote));
    }
    static void LogError(const RemoteError& error) {
        TLOG_WARN("GetURL -- failed: {}", EscapeControls(error.description));
    }
};

std::shared_ptr<const XPCInterface> CreateUserAgentInterface() {
    return std::make_shared<TableInterface<UserAgentProtocol, UserAgentProxy>>("/com/tessarin/UserAgent");
}

}  // namespace cmn
