#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

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

    // `cannotComplete` also when nobody has that unique bus name any more.
    AXError add(const std::vector<std::string>& events, const std::string& busName,
                cmn::bus::Deadline deadline);

    // The bus name has died: to be called for every name that does. Does not wait.
    void forget(const std::string& busName);

    // Tells a new registry everything again. Does not wait.
    void repeat();

 private:
    // With the mutex held.
    void noteDead(std::size_t registrations);
    void registerAll();

    const std::shared_ptr<cmn::bus::Connection> connection_;

    std::mutex mutex_;  // guards what follows
    // Events by bus name; names also while they are being asked for.
    std::map<std::string, std::set<std::string>> wanted_;
    std::set<std::string> events_;  // that were ever wanted
    std::size_t dead_ = 0;          // registrations that the registry still has though nobody needs them
};

}  // namespace useragent
