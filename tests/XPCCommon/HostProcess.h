#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/rapidjson.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

// The service host as a real process, with settings and a log of the service of its own unless the arguments
// name settings.
class HostProcess {
 public:
    explicit HostProcess(const std::string& busAddress, std::vector<std::string> arguments = {"--json"},
                         const std::string& folder = {});

    // The next event; a null value when none comes in time.
    rapidjson::Document event(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // The next event of that name, skipping others.
    rapidjson::Document event(const std::string& name);
    // Both services listen.
    bool isReady() { return event("ready").IsObject() && event("ready").IsObject(); }

    fake::ChildProcess& process() { return process_; }
    // The log of the Finder extension service; complete once the process has ended.
    std::vector<std::string> serviceLog() const;

 private:
    fake::TemporaryFolder folder_;
    fake::ChildProcess process_;
};
