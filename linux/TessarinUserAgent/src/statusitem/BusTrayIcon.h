#pragma once

#include <QObject>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "sessionbus/SessionBus.h"
#include "statusitem/BusMenu.h"
#include "statusitem/StatusMenu.h"
#include "statusitem/TrayIcon.h"

namespace useragent {

// org.kde.StatusNotifierItem with its menu, on a connection of its own to the session bus: panels let go of
// it when that ends. Registers with the panel, and again when the connection was lost. Nothing here waits.
// Why it is not the toolkit's: see WindowTrayIcon.
class BusTrayIcon : public TrayIcon {
 public:
    // The menu must outlive this object. `menuClosed` is called when the panel has closed the menu, or has
    // not said so for `longestMenu`.
    BusTrayIcon(const SessionBusPlace& place, StatusMenu& menu, StatusImage image,
                std::chrono::milliseconds longestMenu, std::function<void()> menuClosed);
    ~BusTrayIcon() override;
    BusTrayIcon(const BusTrayIcon&) = delete;
    BusTrayIcon& operator=(const BusTrayIcon&) = delete;

    void setImage(StatusImage image) override;
    void hostAnswered() override;
    bool menuIsOpen() const override { return busMenu_.isOpen(); }
    IconPlace place() const override { return IconPlace::statusArea; }

 private:
    // Pixels are ARGB in network order.
    using Pixmap = std::tuple<std::int32_t, std::int32_t, std::vector<std::uint8_t>>;

    static std::vector<Pixmap> pixmapsOf(StatusImage image);
    cmn::bus::Interface interface();
    std::shared_ptr<const cmn::bus::Objects> objects();
    void showMenu(int x, int y);

    StatusMenu& menu_;
    std::string title_;
    std::vector<Pixmap> pixmaps_;
    BusMenu busMenu_;
    SessionBus bus_;  // calls the others
};

}  // namespace useragent
