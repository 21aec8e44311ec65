#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/FakeDispatch.h"
#include "support/FakeXPCTransport.h"
#include "support/Recorder.h"
#include "support/UnansweredCalls.h"
#include "xpccommon/FinderExtensionProtocol.h"

// The Finder extension service as the client's proxies reach it: answers as the test says and keeps what it
// is asked. Thread-safe; the settings are changed between the requests only.
class ScriptedFinderExtension {
 public:
    explicit ScriptedFinderExtension(std::shared_ptr<fake::Dispatch> dispatch);

    // The connections of this transport lead here.
    std::shared_ptr<fake::XPCTransport> transport() const { return transport_; }

    bool present = true;  // else every message goes to the proxy's error handler with `error`
    cmn::RemoteError error{"description", "suggestion"};
    bool answersVersion = true;  // else the reply is dropped
    bool answersRequests = true;
    // A delay of nothing answers before the call returns.
    std::chrono::nanoseconds versionDelay{0};
    std::chrono::nanoseconds requestDelay{0};

    std::vector<cmn::ScanRecord> records;
    std::vector<std::string> extensions;
    std::int32_t status = 0;
    bool fullDiskAccess = true;
    cmn::UIVisibilityStatuses visibility;
    bool encrypted = true;

    // The messages in their order, "getScanResult /path".
    std::vector<std::string> messages() const { return messages_.all(); }
    std::vector<std::shared_ptr<cmn::FinderExtensionDelegate>> delegates;
    fake::UnansweredCalls calls;

 private:
    class Proxy;

    void answer(bool wanted, std::chrono::nanoseconds delay, std::function<void()> send);

    const std::shared_ptr<fake::Dispatch> dispatch_;
    const std::shared_ptr<fake::XPCTransport> transport_;
    const fake::Recorder<std::string> messages_;
};
