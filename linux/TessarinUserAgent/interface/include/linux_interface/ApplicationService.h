#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace useragent {

// The agent's name on the session bus. A desktop file of the same name starts it.
inline constexpr const char* kApplicationName = "com.tessarin.TessarinUserAgent";

// One launch of the program: what it was asked to open, and what lets the window take the focus.
struct LaunchRequest {
    std::vector<std::string> urls;
    std::string activationToken;  // empty: none
};

// Makes the program one per session: the first owns a name on the session bus, the others hand their requests
// over to it (org.freedesktop.Application). Main thread.
class ApplicationService : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

 public:
    enum class Role {
        first,   // the name is ours
        second,  // somebody else has it
        alone    // there is no bus to tell
    };

    explicit ApplicationService(QDBusConnection bus);
    ~ApplicationService() override;

    // Waits for the bus.
    Role claim();

    // For the second: passes the request on. Empty when it was taken, else why not. Waits for the first at
    // most that long.
    std::string handOver(const LaunchRequest& request, std::chrono::milliseconds deadline);

    // Called with each request that arrives, on the event loop; those that came earlier follow at once. With
    // none, requests wait.
    void setHandler(std::function<void(const LaunchRequest&)> handler);

 public slots:  // NOLINT(readability-redundant-access-specifiers)
    Q_SCRIPTABLE void Activate(const QVariantMap& platformData);
    Q_SCRIPTABLE void Open(const QStringList& urls, const QVariantMap& platformData);
    Q_SCRIPTABLE void ActivateAction(const QString& action, const QVariantList& parameter,
                                     const QVariantMap& platformData);

 private:
    void deliver(const LaunchRequest& request) const;

    QDBusConnection bus_;
    std::function<void(const LaunchRequest&)> handler_;
    std::vector<LaunchRequest> waiting_;
};

// The activation token of this process's own launch, removed from the environment.
std::string TakeActivationToken();

}  // namespace useragent
