#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "linux_usercommon/DBusChannel.h"

namespace cmn {

struct IncomingCall;

// The objects that one end of a connection lets the other end call. Thread-safe.
class DBusObjectTable {
 public:
    struct Entry {
        std::weak_ptr<const void> object;
        std::shared_ptr<const DBusInterfaceDescription> interface;
        DBusObjectHandler handler;
    };

    void add(const std::string& path, Entry entry);
    // Picks the path; an object that is here already keeps the one it has.
    DBusObjectPath add(Entry entry);
    void clear();

    // Checks a call and hands it to its object, or answers it with an error and a line in the log.
    void deliver(const std::shared_ptr<DBusChannel>& peer, const IncomingCall& call,
                 const DBusReply& reply) const;

    // The standard description of what is at and below a path; nothing when there is nothing.
    std::optional<std::string> introspect(const std::string& path) const;

 private:
    std::optional<Entry> find(const std::string& path) const;

    mutable std::mutex mutex_;  // guards what follows, never held across a call
    std::map<std::string, Entry> entries_;
    unsigned lastNumber_ = 0;
};

}  // namespace cmn
