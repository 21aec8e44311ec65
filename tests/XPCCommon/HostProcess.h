#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/rapidjson.h"
#include "support/ChildProcess.h"

// The service host as a real process.
class HostProcess {
 public:
    explicit HostProcess(const std::string& busAddress, std::vector<std::string> arguments = {"--json"},
                         const std::string& folder = {});

    // The next event; a null value when none comes in time.
    rapidjson::Document event(std::chrono::milliseconds timeout = std::chrono::seconds(20));
    // The next event of that name, skipping others.
    rapidjson::Document event(const std::string& name);
    bool isReady() { return event("ready").IsObject(); }

    fake::ChildProcess& process() { return process_; }

 private:
    fake::ChildProcess process_;
};
