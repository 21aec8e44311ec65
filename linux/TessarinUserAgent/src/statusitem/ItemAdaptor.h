#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QString>
#include <functional>

#include "statusitem/BusTypes.h"
#include "useragent/AppDelegate.h"

namespace useragent {

// org.kde.StatusNotifierItem: the item as panels read it. Main thread.
class ItemAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category CONSTANT)
    Q_PROPERTY(QString Id READ id CONSTANT)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status CONSTANT)
    Q_PROPERTY(int WindowId READ windowId CONSTANT)
    Q_PROPERTY(QString IconName READ none CONSTANT)
    Q_PROPERTY(useragent::BusPixmaps IconPixmap READ iconPixmap)
    Q_PROPERTY(QString IconAccessibleDesc READ title)
    Q_PROPERTY(QString OverlayIconName READ none CONSTANT)
    Q_PROPERTY(useragent::BusPixmaps OverlayIconPixmap READ noPixmap CONSTANT)
    Q_PROPERTY(QString AttentionIconName READ none CONSTANT)
    Q_PROPERTY(useragent::BusPixmaps AttentionIconPixmap READ noPixmap CONSTANT)
    Q_PROPERTY(QString AttentionMovieName READ none CONSTANT)
    Q_PROPERTY(useragent::BusToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu CONSTANT)
    Q_PROPERTY(QDBusObjectPath Menu READ menu CONSTANT)

 public:
    static constexpr const char* kPath = "/StatusNotifierItem";
    static constexpr const char* kMenuPath = "/MenuBar";

    // `showMenu` is called when a panel leaves it to the application to show the menu, at that place of the
    // screen.
    ItemAdaptor(QObject* parent, StatusImage image, std::function<void(int x, int y)> showMenu);

    void setImage(StatusImage image);

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QStringLiteral("com.tessarin.UserAgent"); }
    QString title() const { return title_; }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString none() const { return {}; }
    BusPixmaps iconPixmap() const { return pixmaps_; }
    BusPixmaps noPixmap() const { return {}; }
    BusToolTip toolTip() const { return {{}, {}, title_, {}}; }
    // There is nothing but the menu behind it.
    bool itemIsMenu() const { return true; }
    QDBusObjectPath menu() const { return QDBusObjectPath(QLatin1String(kMenuPath)); }

 public slots:
    void Activate(int x, int y);
    void ContextMenu(int x, int y);
    void SecondaryActivate(int x, int y);
    void Scroll(int delta, const QString& orientation);

 signals:
    void NewTitle();
    void NewIcon();
    void NewToolTip();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewStatus(const QString& status);

 private:
    const std::function<void(int x, int y)> showMenu_;
    QString title_;
    BusPixmaps pixmaps_;
};

}  // namespace useragent
