#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "xpccommon/UserAgentProtocol.h"

// The daemon as the agent's proxies reach it: answers as the test says and keeps what it is sent.
// Thread-safe.
class ScriptedUserAgent {
 public:
    struct Report {
        std::string url, browser;
        std::int32_t pid;
        bool operator==(const Report&) const = default;
    };
    using VersionReply = std::function<void(const std::string&)>;

    explicit ScriptedUserAgent(std::shared_ptr<fake::Dispatch> dispatch);

    // The connections of this transport lead here.
    std::shared_ptr<fake::XPCTransport> transport() const { return transport_; }

    bool answersVersion = true;    // else the reply is kept in `versionReplies`
    bool answersExtractor = true;  // else its reply is dropped
    bool present = true;           // else every message goes to the proxy's error handler with `error`
    cmn::RemoteError error{"description", "suggestion"};

    std::vector<VersionReply> versionReplies;
    std::vector<fake::Dispatch::Queue> versionQueues;    // where each was asked
    std::vector<fake::Dispatch::Queue> extractorQueues;  // where each was set
    std::vector<std::shared_ptr<cmn::URLExtractor>> extractors;
    std::vector<Report> reports;

 private:
    class Proxy;

    const std::shared_ptr<fake::Dispatch> dispatch_;
    const std::shared_ptr<fake::XPCTransport> transport_;
    std::mutex mutex_;
};
