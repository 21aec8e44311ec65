#pragma once

#include <QDBusPendingCall>
#include <QString>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/MainThreadCalls.h"

namespace useragent {

// Remembers which applications do not answer, so that nobody waits for them twice. Each of them has a ping on
// its way without a time limit; its answer ends the state. Any thread.
class ResponseBreaker {
 public:
    // Called on any thread when an application answers again.
    using Recovered = std::function<void(const QString& busName)>;

    ResponseBreaker(MainThreadCalls& calls, Recovered onRecovered);

    bool isOpen(const BusLink& link, const QString& busName);

    // An application left a call unanswered until its deadline. The process id is for the log.
    void trip(const BusLink& link, const QString& busName, std::int32_t pid);

    // Looks at the pings, for when the main thread is busy.
    void poll(const BusLink& link);

 private:
    struct Silent {
        QDBusPendingCall ping;
        std::uint64_t serial = 0;  // of the ping
        std::int32_t pid = 0;
    };

    void startPing(const BusLink& link, const QString& busName, std::int32_t pid);
    void settle(const BusLink& link, const QString& busName, std::uint64_t serial);
    void forgetOtherEpochs(const BusLink& link);

    MainThreadCalls& calls_;
    const Recovered onRecovered_;

    std::mutex mutex_;  // guards what follows
    std::map<QString, Silent> silent_;
    std::uint64_t epoch_ = 0;
    std::uint64_t lastSerial_ = 0;
};

}  // namespace useragent
