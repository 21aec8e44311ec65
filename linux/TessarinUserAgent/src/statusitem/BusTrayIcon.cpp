#include "statusitem/BusTrayIcon.h"

#include <QIcon>
#include <QImage>
#include <QMenu>
#include <QPoint>
#include <QtEndian>
#include <utility>

#include "common/log.h"
#include "statusitem/StatusIcons.h"
#include "statusitem/StatusNotifier.h"

namespace useragent {
namespace {

namespace bus = cmn::bus;

constexpr const char* kPath = "/StatusNotifierItem";
constexpr const char* kInterface = "org.kde.StatusNotifierItem";
// Larger than any panel's; they are sent with every look at the item.
constexpr int kLargestPixmap = 64;

}  // namespace

BusTrayIcon::BusTrayIcon(const SessionBusPlace& place, StatusMenu& menu, StatusImage image,
                         std::chrono::milliseconds longestMenu, std::function<void()> menuClosed)
    : menu_(menu),
      title_(DescribeImage(image)),
      pixmaps_(pixmapsOf(image)),
      busMenu_(menu, longestMenu,
               {std::move(menuClosed),
                [this](const auto& updated, const auto& removed) {
                    bus_.emitSignal(BusMenu::kPath, BusMenu::kInterface, "ItemsPropertiesUpdated", updated,
                                    removed);
                }}),
      bus_(place,
           {[this] { hostAnswered(); },
            [](const std::string& why) { TLOG_WARN("The status item is not on the session bus: {}", why); }},
           objects()) {}

BusTrayIcon::~BusTrayIcon() = default;

std::shared_ptr<const bus::Objects> BusTrayIcon::objects() {
    auto objects = std::make_shared<bus::Objects>();
    objects->add(kPath, {interface()});
    objects->add(BusMenu::kPath, {busMenu_.interface()});
    return objects;
}

bus::Interface BusTrayIcon::interface() {
    const auto none = [] { return ""; };
    const auto noPixmap = [] { return std::vector<Pixmap>(); };
    const auto title = [this] { return title_; };
    const auto click = [this](std::int32_t x, std::int32_t y) { showMenu(x, y); };
    return bus::Interface(kInterface)
        .property("Category", [] { return "ApplicationStatus"; })
        .property("Id", [] { return "com.tessarin.UserAgent"; })
        .property("Title", title)
        .property("Status", [] { return "Active"; })
        .property("WindowId", [] { return std::int32_t{0}; })
        .property("IconName", none)
        .property("IconPixmap", [this] { return pixmaps_; })
        .property("IconAccessibleDesc", title)
        .property("OverlayIconName", none)
        .property("OverlayIconPixmap", noPixmap)
        .property("AttentionIconName", none)
        .property("AttentionIconPixmap", noPixmap)
        .property("AttentionMovieName", none)
        .property("ToolTip",  // the name of an icon, pixmaps, title, text
                  [this] { return std::tuple(std::string(), std::vector<Pixmap>(), title_, std::string()); })
        // There is nothing but the menu behind it.
        .property("ItemIsMenu", [] { return true; })
        .property("Menu", [] { return bus::ObjectPath{BusMenu::kPath}; })
        // From panels that leave it to the application to show the menu, at that place of the screen.
        .method("Activate", {"x", "y"}, click)
        .method("ContextMenu", {"x", "y"}, click)
        // Neither means anything here, but panels send them.
        .method("SecondaryActivate", {"x", "y"}, [](std::int32_t, std::int32_t) {})
        .method("Scroll", {"delta", "orientation"}, [](std::int32_t, const std::string&) {})
        .signal("NewTitle", {})
        .signal("NewIcon", {})
        .signal("NewToolTip", {})
        // Never sent, as they never change: panels that generate code from the description expect them.
        .signal("NewAttentionIcon", {})
        .signal("NewOverlayIcon", {})
        .signal<std::string>("NewStatus", {"status"});
}

std::vector<BusTrayIcon::Pixmap> BusTrayIcon::pixmapsOf(StatusImage image) {
    std::vector<Pixmap> pixmaps;
    const QIcon icon = StatusIcon(image);
    for (const QSize& size : icon.availableSizes()) {
        if (size.width() > kLargestPixmap) {
            continue;
        }
        const QImage picture = icon.pixmap(size).toImage().convertToFormat(QImage::Format_ARGB32);
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(picture.sizeInBytes()));
        // Lines of whole pixels have no gaps between them.
        qToBigEndian<QRgb>(picture.constBits(), picture.sizeInBytes() / qsizetype{sizeof(QRgb)},
                           pixels.data());
        pixmaps.emplace_back(picture.width(), picture.height(), std::move(pixels));
    }
    return pixmaps;
}

void BusTrayIcon::showMenu(int x, int y) {
    // The panel has its answer first.
    QMetaObject::invokeMethod(
        &menu_.drawnMenu(), [&drawn = menu_.drawnMenu(), x, y] { drawn.popup(QPoint(x, y)); },
        Qt::QueuedConnection);
}

void BusTrayIcon::setImage(StatusImage image) {
    title_ = DescribeImage(image);
    pixmaps_ = pixmapsOf(image);
    for (const char* const changed : {"NewTitle", "NewIcon", "NewToolTip"}) {
        bus_.emitSignal(kPath, kInterface, changed);
    }
}

void BusTrayIcon::hostAnswered() {
    bus::Connection& connection = bus_.connection();
    connection.send(connection.makeCall(kNotifierWatcher, kNotifierWatcherPath, kNotifierWatcher,
                                        "RegisterStatusNotifierItem", connection.uniqueName()));
}

}  // namespace useragent
