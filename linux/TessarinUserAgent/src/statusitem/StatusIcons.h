#pragma once

#include <QIcon>

#include "useragent/AppDelegate.h"
#include "useragent/AppMenu.h"

namespace useragent {

// The product's pictures, compiled in, in every size that panels, menus and windows ask for.
// Main thread, once there is a QApplication.
QIcon StatusIcon(StatusImage image);
// The picture of an item of the menu: a red mark when it is red, whatever its image; an empty picture for
// none, so that all titles begin at the same place.
QIcon MenuItemIcon(const MenuItemContent& content);
// The icon of the product's windows.
QIcon ApplicationIcon();

}  // namespace useragent
