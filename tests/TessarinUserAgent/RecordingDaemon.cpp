#include "RecordingDaemon.h"

#include <gtest/gtest.h>

#include "xpccommon/UserAgentProtocol.h"

struct RecordingDaemon::State {
    std::mutex mutex;
    std::vector<SentURL> sent;
    std::shared_ptr<cmn::URLExtractor> extractor;
    std::function<void()> onSend;
};

class RecordingDaemon::Proxy : public cmn::UserAgentProtocol {
 public:
    explicit Proxy(std::shared_ptr<State> state) : state_(std::move(state)) {}

    void version(std::function<void(const std::string&)> reply) override { reply("1.0"); }
    void setURLExtractor(std::shared_ptr<cmn::URLExtractor> extractor,
                         std::function<void(bool)> reply) override {
        {
            const std::lock_guard lock(state_->mutex);
            state_->extractor.swap(extractor);  // the earlier one goes without the lock
        }
        reply(true);
    }
    void sendURL(const std::string& url, const std::string& browser, std::int32_t processID) override {
        {
            const std::lock_guard lock(state_->mutex);
            state_->sent.push_back({url, browser, processID});
        }
        if (state_->onSend) {
            state_->onSend();
        }
    }

 private:
    const std::shared_ptr<State> state_;
};

RecordingDaemon::RecordingDaemon() : state_(std::make_shared<State>()) {
    transport_->makeProxy = [state = state_](const cmn::RemoteErrorHandler&, auto /*deadline*/) {
        return std::make_shared<Proxy>(state);
    };
}

RecordingDaemon::~RecordingDaemon() {
    dropExtractor();
    dispatch_->close();
}

std::shared_ptr<cmn::UserAgentXPCClient> RecordingDaemon::client() {
    if (!client_) {
        client_ = std::make_shared<cmn::UserAgentXPCClient>([](const std::string&) { return std::string(); },
                                                            dispatch_, transport_);
    }
    return client_;
}

void RecordingDaemon::onSend(std::function<void()> action) {
    state_->onSend = std::move(action);
}

std::vector<SentURL> RecordingDaemon::sent() {
    const std::lock_guard lock(state_->mutex);
    return state_->sent;
}

void RecordingDaemon::awaitExtractor() {
    dispatch_->runUntilIdle();
    ASSERT_TRUE(hasExtractor()) << "the agent registers its extractor as soon as it is connected";
}

bool RecordingDaemon::hasExtractor() {
    const std::lock_guard lock(state_->mutex);
    return state_->extractor != nullptr;
}

void RecordingDaemon::dropExtractor() {
    std::shared_ptr<cmn::URLExtractor> dropped;
    const std::lock_guard lock(state_->mutex);
    dropped.swap(state_->extractor);
}

std::string RecordingDaemon::askURL(const std::string& browser) {
    std::shared_ptr<cmn::URLExtractor> extractor;
    {
        const std::lock_guard lock(state_->mutex);
        extractor = state_->extractor;
    }
    std::string url;
    extractor->getURL(browser, [&](const std::string& answer) { url = answer; });
    return url;
}
