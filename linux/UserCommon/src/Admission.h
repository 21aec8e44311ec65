#pragma once

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "linux_bus/Connection.h"

namespace cmn {

// What one peer, or one user, has waiting. Thread-safe.
struct Backlog {
    std::atomic<std::size_t> messages{0};
    std::atomic<std::size_t> bytes{0};
};

// A place in the backlogs of a peer and of its user, until it is let go of.
class Place {
 public:
    Place(std::shared_ptr<Backlog> peer, std::shared_ptr<Backlog> user, std::size_t bytes);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

 private:
    const std::shared_ptr<Backlog> peer_;
    const std::shared_ptr<Backlog> user_;
    const std::size_t bytes_;
};

// Decides, before anything is read or logged, whether a message may wait for its turn. One for each peer; of
// the loop's thread.
class Admission {
 public:
    // Peers of a user share what they may have waiting.
    explicit Admission(std::shared_ptr<Backlog> user = std::make_shared<Backlog>())
        : user_(std::move(user)) {}

    // Once it is known whose the peer is.
    void setUser(std::shared_ptr<Backlog> user) { user_ = std::move(user); }

    // A place, or why there is none. `mostBytes` is what the arguments may have.
    bus::Result<std::shared_ptr<Place>> admit(const bus::Message& message, std::size_t mostBytes);

    // Answers a message with an error, and says so in the log, at most once a minute.
    void refuse(const bus::Question& question, std::string_view sender, const bus::Error& why);

 private:
    const std::shared_ptr<Backlog> peer_ = std::make_shared<Backlog>();
    std::shared_ptr<Backlog> user_;
    bus::Deadline quietUntil_{};
    std::size_t unsaid_ = 0;
    bus::Deadline unreadUntil_{};
};

// The bytes of the arguments of a message, when they are all of basic types; nothing otherwise.
std::optional<std::size_t> BytesOf(const bus::Message& message);

}  // namespace cmn
