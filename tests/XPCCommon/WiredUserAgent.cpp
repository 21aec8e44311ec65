#include "WiredUserAgent.h"

#include <utility>

#include "xpccommon/UserAgentProtocol.h"

namespace {

using fake::XPCEnd;
using fake::XPCRemote;

// The client's object, as the service holds it.
class ExtractorProxy : public cmn::URLExtractor {
 public:
    ExtractorProxy(std::shared_ptr<XPCEnd> service, std::weak_ptr<XPCEnd> client, std::weak_ptr<void> object)
        : service_(std::move(service)), client_(std::move(client)), object_(std::move(object)) {}

    void getURL(const std::string& browser, std::function<void(const std::string&)> reply) override {
        std::function<void(std::string)> kept = std::move(reply);
        auto call = service_->keep(service_->now() + cmn::kGetURLDeadline, std::move(kept), nullptr);
        const auto fail = [service = service_, id = call.second] {
            service->failCall(id, "The client is gone");
        };
        if (const auto client = client_.lock()) {
            client->deliverTo<cmn::URLExtractor>(
                object_,
                [browser, answer = std::move(call.first)](auto& extractor) {
                    extractor.getURL(browser, answer);
                },
                fail);
        } else {
            fail();
        }
    }

 private:
    const std::shared_ptr<XPCEnd> service_;
    const std::weak_ptr<XPCEnd> client_;
    const std::weak_ptr<void> object_;
};

cmn::UserAgentProtocol& Service(cmn::XPCVersioning& object) {
    return dynamic_cast<cmn::UserAgentProtocol&>(object);
}

class Proxy : public cmn::UserAgentProtocol {
 public:
    explicit Proxy(XPCRemote remote) : remote_(std::move(remote)) {}

    void version(std::function<void(const std::string&)> reply) override {
        remote_.ask(0, std::function<void(std::string)>(std::move(reply)),
                    [](auto& object, const auto& answer) { object.version(answer); });
    }
    void setURLExtractor(std::shared_ptr<cmn::URLExtractor> extractor,
                         std::function<void(bool)> reply) override {
        const std::weak_ptr<void> passed = extractor ? remote_.end->pass(extractor) : std::weak_ptr<void>();
        const bool isNone = extractor == nullptr;
        remote_.ask(
            0, std::move(reply), [end = remote_.end, passed, isNone](auto& object, const auto& answer) {
                Service(object).setURLExtractor(
                    isNone ? nullptr : std::make_shared<ExtractorProxy>(end->service(), end, passed), answer);
            });
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        remote_.tell(url.size() + browser.size(), [url, browser, processID](auto& object) {
            Service(object).sendURL(url, browser, processID);
        });
    }

 private:
    const XPCRemote remote_;
};

class Interface : public fake::WiredInterface {
 public:
    std::shared_ptr<cmn::XPCVersioning> createProxy(XPCRemote remote) const override {
        return std::make_shared<Proxy>(std::move(remote));
    }
};

}  // namespace

std::shared_ptr<const cmn::XPCInterface> CreateWiredUserAgentInterface() {
    return std::make_shared<Interface>();
}
