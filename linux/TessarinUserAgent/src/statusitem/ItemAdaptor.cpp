#include "statusitem/ItemAdaptor.h"

#include <utility>

#include "statusitem/StatusIcons.h"
#include "statusitem/TrayIcon.h"

namespace useragent {

ItemAdaptor::ItemAdaptor(QObject* parent, StatusImage image, std::function<void(int x, int y)> showMenu)
    : QDBusAbstractAdaptor(parent),
      showMenu_(std::move(showMenu)),
      title_(QString::fromUtf8(DescribeImage(image))),
      pixmaps_(ToBusPixmaps(StatusIcon(image))) {}

void ItemAdaptor::setImage(StatusImage image) {
    title_ = QString::fromUtf8(DescribeImage(image));
    pixmaps_ = ToBusPixmaps(StatusIcon(image));
    emit NewTitle();
    emit NewIcon();
    emit NewToolTip();
}

void ItemAdaptor::Activate(int x, int y) {
    showMenu_(x, y);
}

void ItemAdaptor::ContextMenu(int x, int y) {
    showMenu_(x, y);
}

// Neither means anything here, but panels send them.
void ItemAdaptor::SecondaryActivate(int /*x*/, int /*y*/) {}
void ItemAdaptor::Scroll(int /*delta*/, const QString& /*orientation*/) {}

}  // namespace useragent
