#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <chrono>
#include <vector>

namespace useragent {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// Time left, at least 0, rounded up.
std::chrono::milliseconds TimeLeft(Deadline deadline);

// The middle of the time left, for a step after which there are others.
Deadline HalfWayTo(Deadline deadline);

struct Replies {
    // One for each call, in their order; of type InvalidMessage where none came in time.
    std::vector<QDBusMessage> messages;

    // Whether each call was answered.
    bool complete = true;

    // Who answered nothing at all until the deadline.
    QStringList silent;
};

// Sends the calls in flight together, a bounded number at a time, and waits for the answers at most until the
// deadline. Any thread.
Replies CallTogether(const QDBusConnection& connection, const std::vector<QDBusMessage>& calls,
                     Deadline deadline);

// The same for one call.
QDBusMessage CallAndWait(const QDBusConnection& connection, const QDBusMessage& call, Deadline deadline);

// Whether an asynchronous call ended because nobody answered it in time.
bool IsTimeout(const QDBusMessage& reply);

}  // namespace useragent
