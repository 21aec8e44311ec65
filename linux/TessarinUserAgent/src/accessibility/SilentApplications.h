#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "linux_bus/Connection.h"

namespace useragent {

// Remembers which applications do not answer, so that nobody waits for them twice. Each of them has a ping on
// its way without a time limit; its answer ends the state. Any thread.
class SilentApplications : public std::enable_shared_from_this<SilentApplications> {
 public:
    // Called in the connection's thread when an application answers again.
    using Recovered = std::function<void(const std::string& busName)>;

    SilentApplications(std::weak_ptr<cmn::bus::Connection> connection, Recovered onRecovered)
        : connection_(std::move(connection)), onRecovered_(std::move(onRecovered)) {}

    bool isSilent(const std::string& busName) const;

    // An application left a call unanswered until its deadline. The process id is for the log.
    void note(const std::string& busName, std::int32_t pid);

 private:
    void ping(const std::string& busName);
    void answered(const std::string& busName, const cmn::bus::Error* error);

    const std::weak_ptr<cmn::bus::Connection> connection_;
    const Recovered onRecovered_;

    mutable std::mutex mutex_;  // guards what follows
    std::map<std::string, std::int32_t> pids_;
};

}  // namespace useragent
