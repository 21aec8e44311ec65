#pragma once

#include <functional>
#include <memory>

#include "useragent/AppMenu.h"

class QMenu;

namespace useragent {

// The menu behind the status item: full disk access, accessibility, Finder extension, version, and the end of
// the agent. Made before the AppMenu that fills it. Main thread, once there is a QApplication.
class StatusMenu {
 public:
    // `quit` is called when the user wants to end the agent.
    explicit StatusMenu(std::function<void()> quit);
    ~StatusMenu();
    StatusMenu(const StatusMenu&) = delete;
    StatusMenu& operator=(const StatusMenu&) = delete;

    // May outlive the menu; they do nothing then.
    const MenuItems& items() const { return items_; }

    // What the first three items do. What the callbacks throw is logged.
    struct Selections {
        std::function<void()> option1, option2, option3;
    };
    void setSelections(Selections selections);
    // Called each time the user is about to see the menu, whoever shows it.
    void setNeedsUpdate(std::function<void()> needsUpdate);

    // The user is about to see the items elsewhere than in the menu below.
    void update();

    // Drawn by ourselves, red titles in red. Belongs to this object; its actions are the items, in order.
    QMenu& drawnMenu();

 private:
    struct State;

    const std::shared_ptr<State> state_;  // callbacks, read at the time of the call
    const std::unique_ptr<QMenu> drawnMenu_;
    MenuItems items_;
};

}  // namespace useragent
