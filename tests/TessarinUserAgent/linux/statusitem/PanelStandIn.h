#pragma once

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QImage>
#include <QObject>
#include <QVariant>
#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/RawPeer.h"

namespace statusitem {

inline constexpr const char* kMenuInterface = "com.canonical.dbusmenu";

// One entry of a menu as a panel gets it.
struct Entry {
    int number = 0;
    std::string label;
    bool enabled = true;
    bool isSeparator = false;
    QByteArray iconData;  // a PNG picture; empty for none
};

// A panel as it is to an application: the watcher of status notifier items, which answers on a thread of its
// own, and a host for them. Its calls run the main event loop until they are answered: the item lives there,
// too.
class PanelStandIn : public QObject {
    Q_OBJECT

 public:
    struct Behaviour {
        bool hasHost = true;
        bool answers = true;  // else it is there and hangs
    };
    explicit PanelStandIn(const std::string& address) : PanelStandIn(address, Behaviour{}) {}
    PanelStandIn(const std::string& address, Behaviour behaviour);
    // Leaves the bus.
    ~PanelStandIn() override;

    // A host comes or goes; the watcher says so.
    void setHost(bool hasHost);
    // Goes on after having hung, with what was asked meanwhile.
    void answerAgain();
    int questions() const { return questions_; }

    // Bus names of the registered items that are still there.
    std::vector<std::string> items();
    // Waits for the one item and returns its bus name; empty when there is not exactly one in time.
    std::string waitForItem();
    bool waitForNoItem();

    QVariant property(const std::string& item, const char* name);
    std::string toolTip(const std::string& item);
    std::vector<QImage> pixmaps(const std::string& item);
    // A left and a right click in panels that leave the menu to the application.
    void activate(const std::string& item);
    void contextMenu(const std::string& item);

    std::vector<Entry> layout(const std::string& item);
    std::vector<Entry> group(const std::string& item, const QList<int>& entries);
    std::string menuProperty(const std::string& item, int entry, const char* name);
    void clickInGroup(const std::string& item, const QList<int>& entries);
    // Whether the item says that its menu changed.
    bool aboutToShow(const std::string& item);
    bool aboutToShowGroup(const std::string& item);
    void menuEvent(const std::string& item, int entry, const char* what);
    void click(const std::string& item, const std::string& label);

    // Names of the signals that came from that item and its menu up to now.
    std::vector<std::string> signalsOf(const std::string& item);
    void forgetSignals() { signals_.clear(); }

 private slots:
    void received(const QDBusMessage& signal);

 private:
    void handle(const QDBusMessage& message, QDBusConnection connection);
    void answer(const QDBusMessage& message, QDBusConnection connection);
    QVariantList callMenu(const std::string& item, const char* member, const QVariantList& arguments);
    QVariantList call(const std::string& item, const std::string& path, const char* interface,
                      const char* member, const QVariantList& arguments);

    std::mutex mutex_;  // guards the next three
    Behaviour behaviour_;
    std::vector<std::pair<QDBusMessage, QDBusConnection>> unanswered_;
    std::vector<std::string> registered_;
    std::atomic<int> questions_{0};
    std::vector<std::pair<std::string, std::string>> signals_;  // sender, name
    const QString name_;
    QDBusConnection host_;
    fake::RawPeer watcher_;
};

}  // namespace statusitem
