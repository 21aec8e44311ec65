#pragma once

#include "useragent/AppDelegate.h"

namespace useragent {

// The status item in one kind of status area; it leaves it with this object, which must not be destroyed in
// the middle of what the status area calls. Main thread.
class TrayIcon {
 public:
    virtual ~TrayIcon() = default;
    virtual void setImage(StatusImage image) = 0;
    // The status area answered anew: it may be another one.
    virtual void hostAnswered() = 0;
    // Whether the status area shows the menu, where it draws it itself.
    virtual bool menuIsOpen() const = 0;
    virtual IconPlace place() const = 0;
};

}  // namespace useragent
