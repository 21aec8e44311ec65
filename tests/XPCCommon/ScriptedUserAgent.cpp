#include "ScriptedUserAgent.h"

#include <gtest/gtest.h>

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
        if (isThere()) {
            daemon_.deliver([reply = std::move(reply)] { reply("1.0"); });
        }
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
        if (isThere() && daemon_.answersExtractor) {
            daemon_.deliver([reply = std::move(reply)] { reply(true); });
        }
    }

    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        if (!isThere()) {
            return;
        }
        daemon_.reports.add({url, browser, processID});
        if (daemon_.onSend) {
            daemon_.onSend();
        }
    }

 private:
    bool isThere() {
        if (!daemon_.present) {
            daemon_.deliver([onError = onError_, error = daemon_.error] { onError(error); });
        }
        return daemon_.present;
    }

    ScriptedUserAgent& daemon_;
    const cmn::RemoteErrorHandler onError_;
};

ScriptedUserAgent::ScriptedUserAgent(std::shared_ptr<fake::Dispatch> dispatch)
    : dispatch_(std::move(dispatch)), transport_(std::make_shared<fake::XPCTransport>(dispatch_)) {
    transport_->makeProxy = [this](cmn::RemoteErrorHandler onError, auto /*deadline*/) {
        return std::make_shared<Proxy>(*this, std::move(onError));
    };
}

ScriptedUserAgent::~ScriptedUserAgent() {
    dropExtractors();
    dispatch_->close();
}

std::shared_ptr<cmn::UserAgentXPCClient> ScriptedUserAgent::client() {
    if (!client_) {
        client_ = std::make_shared<cmn::UserAgentXPCClient>([](const std::string&) { return std::string(); },
                                                            dispatch_, transport_);
    }
    return client_;
}

void ScriptedUserAgent::awaitExtractor() {
    dispatch_->runUntilIdle();
    ASSERT_TRUE(hasExtractor()) << "the agent registers its extractor as soon as it is connected";
}

bool ScriptedUserAgent::hasExtractor() {
    const std::lock_guard lock(mutex_);
    return !extractors.empty();
}

void ScriptedUserAgent::dropExtractors() {
    std::vector<std::shared_ptr<cmn::URLExtractor>> dropped;
    const std::lock_guard lock(mutex_);
    dropped.swap(extractors);
}

std::string ScriptedUserAgent::askURL(const std::string& browser) {
    std::shared_ptr<cmn::URLExtractor> extractor;
    {
        const std::lock_guard lock(mutex_);
        extractor = extractors.back();
    }
    std::string url;
    extractor->getURL(browser, [&](const std::string& answer) { url = answer; });
    return url;
}
