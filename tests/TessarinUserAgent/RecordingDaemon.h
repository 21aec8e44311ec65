#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "xpccommon/UserAgentXPCClient.h"

struct SentURL {
    std::string url, browser;
    std::int32_t pid;

    bool operator==(const SentURL&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const SentURL& sent) {
        return out << sent.browser << " (" << sent.pid << "): " << sent.url.substr(0, 100);
    }
};

// The daemon's end of the agent's connection: keeps what it is sent and the extractor it is given.
// Thread-safe.
class RecordingDaemon {
 public:
    RecordingDaemon();
    // Drops the tasks that wait: they own clients, which own the queues.
    ~RecordingDaemon();
    RecordingDaemon(const RecordingDaemon&) = delete;
    RecordingDaemon& operator=(const RecordingDaemon&) = delete;

    std::shared_ptr<fake::Dispatch> dispatch() { return dispatch_; }
    std::shared_ptr<fake::XPCTransport> transport() { return transport_; }

    // A client connected to this daemon; made at the first call.
    std::shared_ptr<cmn::UserAgentXPCClient> client();
    void dropClient() { client_.reset(); }

    // Called with each report, on the thread that sends it. To be set before the first.
    void onSend(std::function<void()> action);

    std::vector<SentURL> sent();

    // Runs the agent's queues until it has registered its extractor.
    void awaitExtractor();
    bool hasExtractor();
    // Forgets the extractor, which keeps the agent's watcher alive, as a daemon that ends does.
    void dropExtractor();
    // What the extractor answers.
    std::string askURL(const std::string& browser);

 private:
    struct State;
    class Proxy;

    std::shared_ptr<State> state_;
    std::shared_ptr<fake::Dispatch> dispatch_ = std::make_shared<fake::Dispatch>();
    std::shared_ptr<fake::XPCTransport> transport_ = std::make_shared<fake::XPCTransport>();
    std::shared_ptr<cmn::UserAgentXPCClient> client_;
};
