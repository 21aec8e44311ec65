#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "linux_bus/Connection.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Applications send events only when the registry knows somebody who wants them. Keeps the registry informed
// of what the observers want, for as long as one of them does. Any thread.
class EventRegistrations {
 public:
    explicit EventRegistrations(std::shared_ptr<cmn::bus::Connection> connection)
        : connection_(std::move(connection)) {}

    // On success one more observer wants the event of that application.
    AXError add(const std::string& event, const std::string& busName, cmn::bus::Deadline deadline);

    // One observer less. Does not wait.
    void remove(const std::string& event, const std::string& busName);

    // To be told regularly who owns the registry's name, empty when it is not known; a new registry is told
    // everything again. True when it was.
    bool registryOwner(const std::string& owner);

 private:
    using Wanted = std::pair<std::string, std::string>;  // event, bus name

    const std::shared_ptr<cmn::bus::Connection> connection_;

    std::mutex mutex_;  // guards what follows
    std::string registryOwner_;
    std::map<Wanted, int> observers_;
};

}  // namespace useragent
