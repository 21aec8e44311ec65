#include "accessibility/BusCalls.h"

#include <QDBusPendingCall>
#include <algorithm>
#include <deque>
#include <utility>

namespace useragent {
namespace {

// Enough to keep both ends busy, few enough for the bus's own limits.
constexpr std::size_t kMostInFlight = 128;

// Timers may be early by a twentieth of their time.
constexpr std::chrono::milliseconds kTimerSlack{50};

class Flight {
 public:
    Flight(const QDBusConnection& connection, Deadline deadline, std::size_t size)
        : connection_(connection), deadline_(deadline) {
        replies_.messages.reserve(size);
    }

    // False when the time is up.
    bool send(const QDBusMessage& call) {
        if (pending_.size() == kMostInFlight) {
            land();
        }
        const std::chrono::milliseconds left = TimeLeft(deadline_);
        replies_.complete = replies_.complete && left.count() > 0;
        if (replies_.complete) {
            pending_.push_back(connection_.asyncCall(call, static_cast<int>(left.count())));
        }
        return replies_.complete;
    }

    Replies landAll() {
        while (!pending_.empty()) {
            land();
        }
        return std::move(replies_);
    }

 private:
    // Waits for the oldest call. When the time is up only takes what is already there.
    void land() {
        QDBusPendingCall call = pending_.front();
        pending_.pop_front();
        if (!replies_.complete && !call.isFinished()) {
            replies_.messages.emplace_back();
            return;
        }
        call.waitForFinished();
        QDBusMessage reply = call.reply();
        if (IsTimeout(reply) && Clock::now() + kTimerSlack >= deadline_) {
            replies_.complete = false;
            reply = QDBusMessage();
        }
        replies_.messages.push_back(std::move(reply));
    }

    const QDBusConnection& connection_;
    const Deadline deadline_;
    std::deque<QDBusPendingCall> pending_;
    Replies replies_;
};

// `replies` has entries for the calls that were sent.
QStringList SilentOnes(const std::vector<QDBusMessage>& calls, const std::vector<QDBusMessage>& replies) {
    QStringList silent;
    QStringList heard;
    for (std::size_t i = 0; i < replies.size(); ++i) {
        QStringList& list = replies[i].type() == QDBusMessage::InvalidMessage ? silent : heard;
        if (!list.contains(calls[i].service())) {
            list.push_back(calls[i].service());
        }
    }
    for (const QString& name : heard) {
        silent.removeAll(name);
    }
    return silent;
}

}  // namespace

std::chrono::milliseconds TimeLeft(Deadline deadline) {
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()));
}

Deadline HalfWayTo(Deadline deadline) {
    return deadline - std::max(Clock::duration::zero(), deadline - Clock::now()) / 2;
}

Replies CallTogether(const QDBusConnection& connection, const std::vector<QDBusMessage>& calls,
                     Deadline deadline) {
    Flight flight(connection, deadline, calls.size());
    for (const QDBusMessage& call : calls) {
        if (!flight.send(call)) {
            break;
        }
    }
    Replies replies = flight.landAll();
    if (!replies.complete) {
        replies.silent = SilentOnes(calls, replies.messages);
        replies.messages.resize(calls.size());
    }
    return replies;
}

QDBusMessage CallAndWait(const QDBusConnection& connection, const QDBusMessage& call, Deadline deadline) {
    return CallTogether(connection, {call}, deadline).messages.front();
}

bool IsTimeout(const QDBusMessage& reply) {
    return reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply") ||
           reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.Timeout");
}

}  // namespace useragent
