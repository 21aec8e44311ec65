#pragma once

#include "useragent/AppDelegate.h"

namespace useragent {

// The status item in one kind of status area; it leaves it with this object. Main thread.
class TrayIcon {
 public:
    virtual ~TrayIcon() = default;
    virtual void setImage(StatusImage image) = 0;
    // The status area answered anew: it may be another one.
    virtual void hostAnswered() = 0;
};

}  // namespace useragent
