#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "linux_usercommon/ServiceInterface.h"

namespace cmn {

// The objects that one end of a connection lets the other end call. Thread-safe.
class ExportedObjects {
 public:
    struct Entry {
        std::weak_ptr<const void> object;
        std::shared_ptr<const ServiceDescription> interface;
        ServiceHandler handler;
    };
    struct Found {
        ServiceHandler handler;
        std::shared_ptr<const ServiceDescription> interface;
        const ServiceMethod* method = nullptr;
    };

    void add(const std::string& path, Entry entry);
    // Picks the path; an object that is here already keeps the one it has.
    bus::ObjectPath add(Entry entry);
    void clear();

    // Who answers a message, or why nobody does. Looks at its header only.
    bus::Result<Found> find(const bus::Message& message) const;

 private:
    // The standard description of what is at and below a path; nothing when there is nothing.
    std::optional<std::string> introspect(std::string_view path) const;

    mutable std::mutex mutex_;  // guards what follows, never held across a call
    std::map<std::string, Entry, std::less<>> entries_;
    unsigned lastNumber_ = 0;
};

}  // namespace cmn
