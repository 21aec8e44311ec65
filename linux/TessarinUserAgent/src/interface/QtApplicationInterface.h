#pragma once

#include <QObject>
#include <functional>
#include <memory>

#include "sessionbus/SessionBus.h"
#include "useragent/AppDelegate.h"

namespace useragent {

// Status item, windows and timer of the desktop. Needs a QApplication. Main thread.
class QtApplicationInterface : public ApplicationInterface {
 public:
    // Without a display, windows cannot be made; the item on the session bus needs none.
    QtApplicationInterface(SessionBusPlace bus, bool hasDisplay);

    std::shared_ptr<StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) override;
    std::unique_ptr<PropertiesWindow> createPropertiesWindow(std::function<void()> willClose) override;
    void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) override;

 private:
    const SessionBusPlace bus_;
    const bool hasDisplay_;
    QObject timers_;  // their parent
};

}  // namespace useragent
