#include "PanelStandIn.h"

#include <QDBusArgument>
#include <QDBusPendingCall>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <algorithm>
#include <stdexcept>

#include "support/WaitFor.h"

namespace statusitem {

namespace {

constexpr const char* kWatcher = "org.kde.StatusNotifierWatcher";
constexpr const char* kWatcherPath = "/StatusNotifierWatcher";
constexpr const char* kItem = "org.kde.StatusNotifierItem";
constexpr const char* kItemPath = "/StatusNotifierItem";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

constexpr const char* kIntrospection =
    R"(<node><interface name="org.kde.StatusNotifierWatcher">
         <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
         <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
       </interface></node>)";

QString UniqueName() {
    static std::atomic<int> last{0};
    return QStringLiteral("panel-%1").arg(++last);
}

}  // namespace

PanelStandIn::PanelStandIn(const std::string& address, Behaviour behaviour)
    : behaviour_(behaviour),
      name_(UniqueName()),
      host_(QDBusConnection::connectToBus(QString::fromStdString(address), name_)),
      watcher_(address, [this](const QDBusMessage& message, const QDBusConnection& connection) {
          handle(message, connection);
      }) {
    for (const char* const signal : {"NewIcon", "NewToolTip", "NewTitle", "NewStatus", "NewMenu"}) {
        host_.connect(QString(), QString(), QLatin1String(kItem), QLatin1String(signal), this,
                      SLOT(received(QDBusMessage)));
    }
    for (const char* const signal : {"LayoutUpdated", "ItemsPropertiesUpdated"}) {
        host_.connect(QString(), QString(), QLatin1String(kMenuInterface), QLatin1String(signal), this,
                      SLOT(received(QDBusMessage)));
    }
    if (!watcher_.own(kWatcher)) {
        throw std::runtime_error("there is another panel");
    }
}

PanelStandIn::~PanelStandIn() {
    host_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name_);
}

void PanelStandIn::setHost(bool hasHost) {
    {
        const std::lock_guard lock(mutex_);
        behaviour_.hasHost = hasHost;
    }
    watcher_.send(QDBusMessage::createSignal(QLatin1String(kWatcherPath), QLatin1String(kWatcher),
                                             hasHost ? QStringLiteral("StatusNotifierHostRegistered")
                                                     : QStringLiteral("StatusNotifierHostUnregistered")));
}

void PanelStandIn::answerAgain() {
    const std::lock_guard lock(mutex_);
    behaviour_.answers = true;
    for (const auto& [message, connection] : std::exchange(unanswered_, {})) {
        answer(message, connection);
    }
}

void PanelStandIn::handle(const QDBusMessage& message, QDBusConnection connection) {
    const std::lock_guard lock(mutex_);
    ++questions_;
    if (behaviour_.answers) {
        answer(message, std::move(connection));
    } else {
        unanswered_.emplace_back(message, std::move(connection));
    }
}

void PanelStandIn::answer(const QDBusMessage& message, QDBusConnection connection) {
    if (message.member() == QLatin1String("Introspect")) {
        connection.send(message.createReply(QString::fromLatin1(kIntrospection)));
    } else if (message.member() == QLatin1String("Get")) {
        connection.send(message.createReply(QVariant::fromValue(QDBusVariant(behaviour_.hasHost))));
    } else if (message.member() == QLatin1String("RegisterStatusNotifierItem")) {
        registered_.push_back(message.arguments().value(0).toString().toStdString());
        connection.send(message.createReply());
    } else {
        connection.send(message.createErrorReply(QDBusError::UnknownMethod, message.member()));
    }
}

std::vector<std::string> PanelStandIn::items() {
    std::vector<std::string> found;
    {
        const std::lock_guard lock(mutex_);
        found = registered_;
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    found.erase(std::remove_if(found.begin(), found.end(),
                               [this](const std::string& item) { return !watcher_.hasOwner(item); }),
                found.end());
    return found;
}

std::string PanelStandIn::waitForItem() {
    return fake::WaitFor([this] { return items().size() == 1; }) ? items().front() : std::string();
}

bool PanelStandIn::waitForNoItem() {
    return fake::WaitFor([this] { return items().empty(); });
}

QVariantList PanelStandIn::call(const std::string& item, const std::string& path, const char* interface,
                                const char* member, const QVariantList& arguments) {
    const QDBusPendingCall pending =
        host_.asyncCall(fake::RawPeer::message(item, path, interface, member, arguments));
    if (!fake::WaitFor([&pending] { return pending.isFinished(); }) || pending.isError()) {
        throw std::runtime_error(std::string(member) + ": " + pending.error().message().toStdString());
    }
    return pending.reply().arguments();
}

QVariant PanelStandIn::property(const std::string& item, const char* name) {
    return call(item, kItemPath, kProperties, "Get", {QLatin1String(kItem), QLatin1String(name)})
        .value(0)
        .value<QDBusVariant>()
        .variant();
}

std::string PanelStandIn::toolTip(const std::string& item) {
    const auto argument = property(item, "ToolTip").value<QDBusArgument>();  // (sa(iiay)ss)
    QString iconName;
    QString title;
    argument.beginStructure();
    argument >> iconName;
    argument.beginArray();
    while (!argument.atEnd()) {
        argument.asVariant();
    }
    argument.endArray();
    argument >> title;
    argument.endStructure();
    return title.toStdString();
}

std::vector<QImage> PanelStandIn::pixmaps(const std::string& item) {
    std::vector<QImage> images;
    const auto argument =
        property(item, "IconPixmap").value<QDBusArgument>();  // a(iiay), pixels in network order
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0;
        int height = 0;
        QByteArray bytes;
        argument.beginStructure();
        argument >> width >> height >> bytes;
        argument.endStructure();
        QImage image(width, height, QImage::Format_ARGB32);
        for (int at = 0; at < width * height; ++at) {
            const auto byte = [&](int index) { return static_cast<unsigned char>(bytes.at(4 * at + index)); };
            image.setPixel(at % width, at / width, qRgba(byte(1), byte(2), byte(3), byte(0)));
        }
        images.push_back(image);
    }
    argument.endArray();
    return images;
}

void PanelStandIn::activate(const std::string& item) {
    call(item, kItemPath, kItem, "Activate", {10, 10});
}

void PanelStandIn::contextMenu(const std::string& item) {
    call(item, kItemPath, kItem, "ContextMenu", {10, 10});
}

void PanelStandIn::received(const QDBusMessage& signal) {
    signals_.emplace_back(signal.service().toStdString(), signal.member().toStdString());
}

std::vector<std::string> PanelStandIn::signalsOf(const std::string& item) {
    // Its answer comes after the signals that it sent before.
    property(item, "Status");
    QCoreApplication::processEvents();
    std::vector<std::string> names;
    for (const auto& [sender, name] : signals_) {
        if (sender == item) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace statusitem
