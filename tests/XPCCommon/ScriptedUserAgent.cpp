#include "ScriptedUserAgent.h"

#include <utility>

class ScriptedUserAgent::Proxy : public cmn::UserAgentProtocol {
 public:
    Proxy(ScriptedUserAgent& daemon, cmn::RemoteErrorHandler onError)
        : daemon_(daemon), onError_(std::move(onError)) {}

    void version(std::function<void(const std::string&)> reply) override {
        {
            const std::lock_guard lock(daemon_.mutex_);
            daemon_.versionQueues.push_back(daemon_.dispatch_->currentQueue());
            if (daemon_.present && !daemon_.answersVersion) {
                daemon_.versionReplies.push_back(std::move(reply));
                return;
            }
        }
        daemon_.present ? reply("1.0") : onError_(daemon_.error);
    }

    void setURLExtractor(std::shared_ptr<cmn::URLExtractor> extractor,
                         std::function<void(bool)> reply) override {
        {
            const std::lock_guard lock(daemon_.mutex_);
            daemon_.extractorQueues.push_back(daemon_.dispatch_->currentQueue());
            if (daemon_.present) {
                daemon_.extractors.push_back(std::move(extractor));
            }
        }
        if (!daemon_.present) {
            onError_(daemon_.error);
        } else if (daemon_.answersExtractor) {
            reply(true);
        }
    }

    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        if (daemon_.present) {
            const std::lock_guard lock(daemon_.mutex_);
            daemon_.reports.push_back({url, browser, processID});
        } else {
            onError_(daemon_.error);
        }
    }

 private:
    ScriptedUserAgent& daemon_;
    const cmn::RemoteErrorHandler onError_;
};

ScriptedUserAgent::ScriptedUserAgent(std::shared_ptr<fake::Dispatch> dispatch)
    : dispatch_(std::move(dispatch)), transport_(std::make_shared<fake::XPCTransport>(dispatch_)) {
    transport_->makeProxy = [this](cmn::RemoteErrorHandler onError, auto /*deadline*/) {
        return std::make_shared<Proxy>(*this, std::move(onError));
    };
}
