#include "ScriptedFinderExtension.h"

#include <utility>

class ScriptedFinderExtension::Proxy : public cmn::FinderExtensionCommunicator {
 public:
    Proxy(ScriptedFinderExtension& service, cmn::RemoteErrorHandler onError,
          std::chrono::nanoseconds deadline)
        : service_(service), onError_(std::move(onError)), limit_(service.calls.limit(deadline)) {}

    void version(std::function<void(const std::string&)> reply) override {
        if (received("version")) {
            service_.answer(service_.answersVersion, service_.versionDelay,
                            [reply = service_.calls.keep(limit_, std::move(reply))] { reply("1.0"); });
        }
    }
    void checkEncryptionStatus(const std::string& path,
                               std::shared_ptr<cmn::FinderExtensionDelegate> delegate) override {
        if (received("checkEncryptionStatus " + path)) {
            service_.delegates.push_back(delegate);
            service_.answer(service_.answersRequests, service_.requestDelay,
                            [delegate, encrypted = service_.encrypted] {
                                delegate->didCheckEncryptionStatus(encrypted);
                            });
        }
    }
    void decrypt(const std::string& path, std::function<void(std::int32_t)> reply) override {
        request("decrypt " + path, reply, service_.status);
    }
    void getScanResult(const std::string& path,
                       std::function<void(std::vector<cmn::ScanRecord>)> reply) override {
        request("getScanResult " + path, reply, service_.records);
    }
    void allowedExtensions(std::function<void(const std::vector<std::string>&)> reply) override {
        request("allowedExtensions", reply, service_.extensions);
    }
    void checkFullDiskAccess(std::function<void(bool)> reply) override {
        request("checkFullDiskAccess", reply, service_.fullDiskAccess);
    }
    void getUIVisibilityStatuses(std::function<void(const cmn::UIVisibilityStatuses&)> reply) override {
        request("getUIVisibilityStatuses", reply, service_.visibility);
    }
    void sendLogMessage(const std::string& message, const std::string& level) override {
        received("sendLogMessage " + level + " " + message);
    }

 private:
    bool received(const std::string& message) {
        if (service_.calls.isOver(limit_)) {
            return false;
        }
        service_.messages_.add(message);
        if (!service_.present) {
            service_.dispatch_->deliver(std::chrono::nanoseconds(0),
                                        [onError = onError_, error = service_.error] { onError(error); });
        }
        return service_.present;
    }
    template <typename Reply, typename Answer>
    void request(const std::string& message, const Reply& reply, const Answer& value) {
        if (received(message)) {
            service_.answer(service_.answersRequests, service_.requestDelay,
                            [reply = service_.calls.keep(limit_, reply), value] { reply(value); });
        }
    }

    ScriptedFinderExtension& service_;
    const cmn::RemoteErrorHandler onError_;
    const std::chrono::nanoseconds limit_;
};

ScriptedFinderExtension::ScriptedFinderExtension(std::shared_ptr<fake::Dispatch> dispatch)
    : calls(dispatch),
      dispatch_(std::move(dispatch)),
      transport_(std::make_shared<fake::XPCTransport>(dispatch_)) {
    transport_->makeProxy = [this](cmn::RemoteErrorHandler onError, std::chrono::nanoseconds deadline) {
        return std::make_shared<Proxy>(*this, std::move(onError), deadline);
    };
}

void ScriptedFinderExtension::answer(bool wanted, std::chrono::nanoseconds delay,
                                     std::function<void()> send) {
    if (wanted) {
        dispatch_->deliver(delay, std::move(send));
    }
}
