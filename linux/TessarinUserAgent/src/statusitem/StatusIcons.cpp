#include "statusitem/StatusIcons.h"

#include <QIconEngine>
#include <QPainter>
#include <QPixmap>
#include <QString>
#include <QSvgRenderer>
#include <algorithm>
#include <array>
#include <iterator>

// Outside of any namespace, as the macro demands. A static library's resources are not registered by
// themselves.
static void RegisterIcons() {
    Q_INIT_RESOURCE(StatusIcons);
}

namespace useragent {
namespace {

// What menus, panels of both usual heights and windows ask for; and each for screens of twice the density.
constexpr std::array kSizes{16, 22, 24, 32, 44, 48, 64, 96, 128};

// Drawn when it is asked for: pixmaps of all sizes would be the better part of the agent's memory.
class Picture : public QIconEngine {
 public:
    // A name of none is an empty picture.
    explicit Picture(const char* name) : name_(name) {}

    void paint(QPainter* painter, const QRect& place, QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        if (name_ != nullptr) {
            QSvgRenderer(QStringLiteral(":/tessarin/icons/%1.svg").arg(QLatin1String(name_)))
                .render(painter, place);
        }
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap picture(size);
        picture.fill(Qt::transparent);
        QPainter painter(&picture);
        paint(&painter, picture.rect(), mode, state);
        return picture;
    }

    QIconEngine* clone() const override { return new Picture(name_); }

    QList<QSize> availableSizes(QIcon::Mode /*mode*/, QIcon::State /*state*/) override {
        QList<QSize> sizes;
        std::transform(kSizes.begin(), kSizes.end(), std::back_inserter(sizes),
                       [](int size) { return QSize(size, size); });
        return sizes;
    }

 private:
    const char* const name_;
};

QIcon IconOf(const char* name) {
    RegisterIcons();
    return QIcon(new Picture(name));  // whose it is then
}

}  // namespace

QIcon StatusIcon(StatusImage image) {
    return IconOf(IsRed(image) ? "MenuIconRed" : "MenuIcon");
}

QIcon MenuItemIcon(const MenuItemContent& content) {
    if (content.isRed) {
        return IconOf("RedMark");
    }
    return IconOf(content.image == MenuImage::accessibility ? "Accessibility" : nullptr);
}

QIcon ApplicationIcon() {
    return IconOf("com.tessarin.UserAgent");
}

}  // namespace useragent
