#include "statusitem/BusTypes.h"

#include <QImage>
#include <QtEndian>

#include "linux_usercommon/RegisterDBusType.h"

namespace useragent {
namespace {

// Larger than any panel's; they are sent with every look at the item.
constexpr int kLargestPixmap = 64;

}  // namespace

QDBusArgument& operator<<(QDBusArgument& out, const BusPixmap& pixmap) {
    out.beginStructure();
    out << pixmap.width << pixmap.height << pixmap.pixels;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusPixmap& pixmap) {
    in.beginStructure();
    in >> pixmap.width >> pixmap.height >> pixmap.pixels;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const BusToolTip& toolTip) {
    out.beginStructure();
    out << toolTip.iconName << toolTip.icon << toolTip.title << toolTip.text;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusToolTip& toolTip) {
    in.beginStructure();
    in >> toolTip.iconName >> toolTip.icon >> toolTip.title >> toolTip.text;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const BusMenuItem& item) {
    out.beginStructure();
    out << item.number << item.properties;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusMenuItem& item) {
    in.beginStructure();
    in >> item.number >> item.properties;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const BusMenuRemoved& removed) {
    out.beginStructure();
    out << removed.number << removed.properties;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusMenuRemoved& removed) {
    in.beginStructure();
    in >> removed.number >> removed.properties;
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const BusMenuLayout& layout) {
    out.beginStructure();
    out << layout.number << layout.properties;
    out.beginArray(QMetaType::fromType<QDBusVariant>());
    for (const BusMenuLayout& child : layout.children) {
        out << QDBusVariant(QVariant::fromValue(child));
    }
    out.endArray();
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusMenuLayout& layout) {
    in.beginStructure();
    in >> layout.number >> layout.properties;
    in.beginArray();
    layout.children.clear();
    while (!in.atEnd()) {
        QDBusVariant child;
        in >> child;
        layout.children.append(qdbus_cast<BusMenuLayout>(child.variant()));
    }
    in.endArray();
    in.endStructure();
    return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const BusMenuEvent& event) {
    out.beginStructure();
    out << event.number << event.name << event.data << event.timestamp;
    out.endStructure();
    return out;
}
const QDBusArgument& operator>>(const QDBusArgument& in, BusMenuEvent& event) {
    in.beginStructure();
    in >> event.number >> event.name >> event.data >> event.timestamp;
    in.endStructure();
    return in;
}

void RegisterBusTypes() {
    cmn::RegisterDBusType<BusPixmap>();
    cmn::RegisterDBusType<BusPixmaps>();
    cmn::RegisterDBusType<BusToolTip>();
    cmn::RegisterDBusType<BusMenuItem>();
    cmn::RegisterDBusType<BusMenuItems>();
    cmn::RegisterDBusType<BusMenuRemoved>();
    cmn::RegisterDBusType<BusMenuRemovedList>();
    cmn::RegisterDBusType<BusMenuLayout>();
    cmn::RegisterDBusType<BusMenuEvent>();
    cmn::RegisterDBusType<BusMenuEvents>();
    // The bus library looks the parameters of signals and methods up by the names that stand there.
    qRegisterMetaType<BusPixmaps>("useragent::BusPixmaps");
    qRegisterMetaType<BusMenuItems>("useragent::BusMenuItems");
    qRegisterMetaType<BusMenuRemovedList>("useragent::BusMenuRemovedList");
    qRegisterMetaType<BusMenuEvents>("useragent::BusMenuEvents");
}

BusPixmaps ToBusPixmaps(const QIcon& icon) {
    BusPixmaps pixmaps;
    for (const QSize& size : icon.availableSizes()) {
        if (size.width() > kLargestPixmap) {
            continue;
        }
        const QImage image = icon.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32);
        BusPixmap pixmap{image.width(), image.height(), {}};
        for (int y = 0; y < image.height(); ++y) {
            const auto* const line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                const QRgb inOrder = qToBigEndian(line[x]);
                pixmap.pixels.append(reinterpret_cast<const char*>(&inOrder), sizeof inOrder);
            }
        }
        pixmaps.append(pixmap);
    }
    return pixmaps;
}

}  // namespace useragent
