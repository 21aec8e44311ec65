#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/Recorder.h"
#include "xpccommon/UserAgentXPCClient.h"

struct SentURL {
    std::string url, browser;
    std::int32_t pid;

    bool operator==(const SentURL&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const SentURL& sent) {
        return out << sent.browser << " (" << sent.pid << "): " << sent.url.substr(0, 100);
    }
};

// The daemon as the agent's proxies reach it: answers as the test says, on a thread of the transport, and
// keeps what it is sent. Thread-safe.
class ScriptedUserAgent {
 public:
    using VersionReply = std::function<void(const std::string&)>;

    explicit ScriptedUserAgent(std::shared_ptr<fake::Dispatch> dispatch = std::make_shared<fake::Dispatch>());
    // Drops the tasks that wait: they own clients, which own the queues.
    ~ScriptedUserAgent();
    ScriptedUserAgent(const ScriptedUserAgent&) = delete;
    ScriptedUserAgent& operator=(const ScriptedUserAgent&) = delete;

    std::shared_ptr<fake::Dispatch> dispatch() const { return dispatch_; }
    // The connections of this transport lead here.
    std::shared_ptr<fake::XPCTransport> transport() const { return transport_; }
    // A client connected to this daemon, without an answer of its own; made at the first call.
    std::shared_ptr<cmn::UserAgentXPCClient> client();
    void dropClient() { client_.reset(); }

    // Runs the agent's queues until it has registered its extractor.
    void awaitExtractor();
    // The one registered last. As long as it is kept it keeps the agent's watcher alive.
    bool hasExtractor();
    void dropExtractors();
    std::string askURL(const std::string& browser);

    bool answersVersion = true;    // else the reply is kept in `versionReplies`
    bool answersExtractor = true;  // else its reply is dropped
    bool present = true;           // else every message goes to the proxy's error handler with `error`
    cmn::RemoteError error{"description", "suggestion"};
    std::function<void()> onSend;  // called with each report, on the thread that sends it

    std::vector<VersionReply> versionReplies;
    std::vector<fake::Dispatch::Queue> versionQueues;    // where each was asked
    std::vector<fake::Dispatch::Queue> extractorQueues;  // where each was set
    std::vector<std::shared_ptr<cmn::URLExtractor>> extractors;
    const fake::Recorder<SentURL> reports;

 private:
    class Proxy;

    void deliver(std::function<void()> task) {
        dispatch_->deliver(std::chrono::nanoseconds(0), std::move(task));
    }

    const std::shared_ptr<fake::Dispatch> dispatch_;
    const std::shared_ptr<fake::XPCTransport> transport_;
    std::shared_ptr<cmn::UserAgentXPCClient> client_;
    std::mutex mutex_;
};
