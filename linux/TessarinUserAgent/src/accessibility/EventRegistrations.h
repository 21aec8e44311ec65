#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "linux_bus/Connection.h"
#include "useragent/Accessibility.h"

namespace useragent {

// Applications send events only when the registry knows somebody who wants them. Keeps the registry informed
// of what is wanted, of each application for as long as its bus name lives: the registry can only be told to
// forget an event of all applications at once, and tells all of them each time. Any thread.
class EventRegistrations {
 public:
    explicit EventRegistrations(std::shared_ptr<cmn::bus::Connection> connection)
        : connection_(std::move(connection)) {}

    AXError add(const std::string& event, const std::string& busName, cmn::bus::Deadline deadline);

    // The bus name has died. Does not wait.
    void forget(const std::string& busName);

    // Tells a new registry everything again. Does not wait.
    void repeat();

 private:
    using Wanted = std::pair<std::string, std::string>;  // event, bus name

    // With the mutex held.
    void registerAll();

    const std::shared_ptr<cmn::bus::Connection> connection_;

    std::mutex mutex_;  // guards what follows
    std::set<Wanted> wanted_;
    std::set<std::string> events_;  // that were ever wanted
    std::size_t dead_ = 0;          // registrations that the registry still has though nobody needs them
};

}  // namespace useragent
