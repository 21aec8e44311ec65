#pragma once

#include <QDBusConnection>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "accessibility/AtspiSettings.h"
#include "accessibility/BusCalls.h"
#include "linux_usercommon/TaskPool.h"

namespace useragent {

// The accessibility bus in one uninterrupted stretch of being usable.
struct BusLink {
    QDBusConnection connection;
    std::uint64_t epoch = 0;  // bus names and paths of another epoch mean nothing
};

// Finds the session's accessibility bus, connects to it and notices when it goes away, comes back or is
// switched off and on. Any thread; of several callers that find it unusable one tries, the others do not
// wait.
class AccessibilityBus {
 public:
    AccessibilityBus(std::shared_ptr<cmn::TaskPool> pool, AtspiSettings settings);
    ~AccessibilityBus();
    AccessibilityBus(const AccessibilityBus&) = delete;
    AccessibilityBus& operator=(const AccessibilityBus&) = delete;

    // The bus as last seen, without asking; looks for it when it was not usable the last time, but not too
    // often.
    std::optional<BusLink> link(Deadline deadline);

    // Looks anew. Nothing when the session has none, it does not answer, or accessibility is switched off.
    std::optional<BusLink> check(Deadline deadline);

    // What the last look found out about the session's switch; nothing when it did not answer.
    std::optional<bool> isSwitchedOn() const;

    // The session bus; nothing when it cannot be had.
    std::optional<QDBusConnection> session(Deadline deadline);

 private:
    enum class Verdict { unknown, usable, switchedOff, unreachable };
    struct Bus {
        std::string address;  // as asked for
        QDBusConnection connection;
    };
    struct SessionAnswer {
        std::optional<bool> switchedOn;
        std::optional<std::string> address;
        std::string failure;
    };

    SessionAnswer askSession(Deadline deadline);
    std::optional<Bus> connect(const std::string& address, Deadline deadline, std::string& failure);
    void look(Deadline deadline);
    void conclude(Verdict verdict, const std::string& reason);
    std::optional<BusLink> usableLink() const;

    const std::shared_ptr<cmn::TaskPool> pool_;
    const AtspiSettings settings_;

    mutable std::mutex mutex_;  // guards what follows
    std::optional<Bus> session_;
    std::optional<Bus> bus_;
    std::optional<bool> switchedOn_;
    std::uint64_t epoch_ = 0;
    Verdict verdict_ = Verdict::unknown;
    Deadline lastLook_{};
    bool looking_ = false;
};

}  // namespace useragent
