#include "statusitem/StatusIcons.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QString>
#include <QSvgRenderer>

// Outside of any namespace, as the macro demands. A static library's resources are not registered by
// themselves.
static void RegisterIcons() {
    Q_INIT_RESOURCE(StatusIcons);
}

namespace useragent {
namespace {

// Menus, panels of both usual heights, windows; and each for screens of twice the density.
constexpr int kSizes[] = {16, 22, 24, 32, 44, 48, 64, 96, 128};

// Pixmaps of every size, transparent where `draw` leaves them so.
template <typename Draw>
QIcon IconOf(Draw draw) {
    QIcon icon;
    for (const int size : kSizes) {
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        draw(painter);
        painter.end();
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

QIcon Render(const char* name) {
    RegisterIcons();
    QSvgRenderer renderer(QStringLiteral(":/tessarin/icons/%1.svg").arg(QLatin1String(name)));
    return IconOf([&renderer](QPainter& painter) { renderer.render(&painter); });
}

QIcon EmptyIcon() {
    return IconOf([](QPainter&) {});
}

}  // namespace

QIcon StatusIcon(StatusImage image) {
    return Render(image == StatusImage::menuIconRed ? "MenuIconRed" : "MenuIcon");
}

QIcon MenuItemIcon(const MenuItemContent& content) {
    if (content.isRed) {
        return Render("RedMark");
    }
    return content.image == MenuImage::accessibility ? Render("Accessibility") : EmptyIcon();
}

QIcon ApplicationIcon() {
    return Render("com.tessarin.UserAgent");
}

}  // namespace useragent
