#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "useragent/AppMenu.h"

class QAction;
class QMenu;

namespace useragent {

// The menu behind the status item: the items that it is given, whether the service answers, and the end of
// the agent. What their callbacks throw is logged. Main thread, once there is a QApplication.
class StatusMenu {
 public:
    // `quit` is called when the user wants to end the agent.
    explicit StatusMenu(std::function<void()> quit);
    ~StatusMenu();
    StatusMenu(const StatusMenu&) = delete;
    StatusMenu& operator=(const StatusMenu&) = delete;

    // Rewrites what differs. The first call makes the items, before there is an icon with this menu.
    void setItems(const MenuItems& items);
    // Rewrites the line that says whether the service answers.
    void setService(const std::string& words);
    // Called each time the user is about to see the menu, whoever shows it.
    void setNeedsUpdate(std::function<void()> needsUpdate) { needsUpdate_ = std::move(needsUpdate); }

    // The user is about to see the items elsewhere than in the menu below.
    void update();

    // Drawn by ourselves, red titles in red. Belongs to this object; its actions are the items, in order.
    QMenu& drawnMenu() { return *drawnMenu_; }

 private:
    void addItem(bool canBeSelected);

    std::function<void()> needsUpdate_;
    const std::unique_ptr<QMenu> drawnMenu_;
    QAction* const separator_;
    QAction* const service_;
    MenuItems shown_;
};

}  // namespace useragent
