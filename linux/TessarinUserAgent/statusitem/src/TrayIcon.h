#pragma once

#include <QString>

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

// The state in words: read aloud, and readable for those who cannot tell the colours.
inline QString DescribeImage(StatusImage image) {
    return image == StatusImage::menuIconRed ? QStringLiteral("Tessarin: full disk access is missing")
                                             : QStringLiteral("Tessarin User Agent");
}

}  // namespace useragent
