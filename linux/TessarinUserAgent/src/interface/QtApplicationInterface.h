#pragma once

#include <functional>
#include <memory>

#include "statusitem/SessionBus.h"
#include "statusitem/StatusMenu.h"
#include "useragent/AppDelegate.h"

namespace useragent {

// Status item, windows and timer of the desktop. Needs a QApplication. Main thread.
class QtApplicationInterface : public ApplicationInterface {
 public:
    // Without a display, windows cannot be made; the item on the session bus needs none.
    QtApplicationInterface(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu, bool hasDisplay);
    ~QtApplicationInterface() override;

    std::shared_ptr<StatusItem> createStatusItem(std::function<void()> menuNeedsUpdate) override;
    std::unique_ptr<PropertiesWindow> createPropertiesWindow(std::function<void()> willClose) override;
    void scheduleRepeatingTimer(std::chrono::seconds interval, std::function<void()> tick) override;

 private:
    struct Timers;

    const SessionBusPlace bus_;
    const std::shared_ptr<StatusMenu> menu_;
    const bool hasDisplay_;
    const std::unique_ptr<Timers> timers_;
};

}  // namespace useragent
