#pragma once

#include <filesystem>

namespace useragent {

// Held by the one agent of a session; the file is one per user. Any thread.
class SessionLock {
 public:
    explicit SessionLock(const std::filesystem::path& file);
    ~SessionLock();
    SessionLock(const SessionLock&) = delete;
    SessionLock& operator=(const SessionLock&) = delete;

    // False when another process, or another object, holds the lock. True also when the file cannot be
    // opened: better two agents than none.
    bool isHeld() const { return held_; }

 private:
    int file_ = -1;
    bool held_ = true;
};

}  // namespace useragent
