#include "accessibility/ResponseBreaker.h"

#include <climits>
#include <utility>
#include <vector>

#include "accessibility/AtspiMessages.h"
#include "common/log.h"

namespace useragent {
namespace {

constexpr int kNoTimeout = INT_MAX;

}  // namespace

ResponseBreaker::ResponseBreaker(MainThreadCalls& calls, Recovered onRecovered)
    : calls_(calls), onRecovered_(std::move(onRecovered)) {}

bool ResponseBreaker::isOpen(const BusLink& link, const QString& busName) {
    const std::lock_guard lock(mutex_);
    forgetOtherEpochs(link);
    return silent_.contains(busName);
}

void ResponseBreaker::trip(const BusLink& link, const QString& busName, std::int32_t pid) {
    const std::lock_guard lock(mutex_);
    forgetOtherEpochs(link);
    if (silent_.contains(busName)) {
        return;
    }
    TLOG_WARN("The application with process id {} does not answer", pid);
    startPing(link, busName, pid);
}

void ResponseBreaker::poll(const BusLink& link) {
    std::vector<std::pair<QString, std::uint64_t>> names;
    {
        const std::lock_guard lock(mutex_);
        forgetOtherEpochs(link);
        for (const auto& [busName, state] : silent_) {
            names.emplace_back(busName, state.serial);
        }
    }
    for (const auto& [busName, serial] : names) {
        settle(link, busName, serial);
    }
}

void ResponseBreaker::startPing(const BusLink& link, const QString& busName, std::int32_t pid) {
    const std::uint64_t serial = ++lastSerial_;
    const QDBusPendingCall ping = link.connection.asyncCall(atspi::Ping(busName), kNoTimeout);
    silent_.insert_or_assign(busName, Silent{ping, serial, pid});
    calls_.whenFinished(
        ping, [this, link, busName, serial](const QDBusMessage&) { settle(link, busName, serial); });
}

void ResponseBreaker::settle(const BusLink& link, const QString& busName, std::uint64_t serial) {
    std::int32_t pid = 0;
    {
        const std::lock_guard lock(mutex_);
        forgetOtherEpochs(link);
        const auto found = silent_.find(busName);
        if (found == silent_.end() || found->second.serial != serial || !found->second.ping.isFinished()) {
            return;
        }
        const QDBusMessage answer = found->second.ping.reply();
        if (IsTimeout(answer)) {
            // The bus itself gives up after a while. An application that died shows at the next ping.
            startPing(link, busName, found->second.pid);
            return;
        }
        if (atspi::ErrorOf(answer) == AXError::cannotComplete) {
            silent_.erase(found);  // gone
            return;
        }
        pid = found->second.pid;
        silent_.erase(found);
    }
    TLOG_INFO("The application with process id {} answers again", pid);
    onRecovered_(busName);
}

void ResponseBreaker::forgetOtherEpochs(const BusLink& link) {
    if (epoch_ < link.epoch) {
        silent_.clear();
        epoch_ = link.epoch;
    }
}

}  // namespace useragent
