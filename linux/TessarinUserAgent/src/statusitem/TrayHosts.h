#pragma once

#include <QObject>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "sessionbus/SessionBus.h"

namespace useragent {

// The places in which a session shows status items.
enum class TrayRoad {
    sessionBus,    // a panel is registered with the watcher of status notifier items
    windowSystem,  // there is none: what is left is a tray of the X server, now or later
};

// Finds out where the item belongs, and notices when that changes. Main thread.
class TrayHosts : public QObject {
    Q_OBJECT

 public:
    // A desktop that is just starting takes its time.
    static constexpr std::chrono::milliseconds kTimeout{25'000};

    // `onAnswer` is called with every answer, never from inside `ask`; it need not differ from the last.
    // A watcher that is silent for `timeout` is asked again. A bus that was lost is asked when it is back.
    TrayHosts(SessionBusPlace place, std::function<void(TrayRoad)> onAnswer,
              std::chrono::milliseconds timeout = kTimeout);

    // Does not wait.
    void ask();

 private:
    void subscribe();
    void answered(const SessionBus::Reply& reply);

    const std::function<void(TrayRoad)> onAnswer_;
    const std::chrono::milliseconds timeout_;
    std::vector<std::shared_ptr<cmn::bus::Subscription>> subscriptions_;
    int lastQuestion_ = 0;  // an older one's answer is ignored
    bool saidSilent_ = false;
    SessionBus bus_;  // calls the others
};

}  // namespace useragent
