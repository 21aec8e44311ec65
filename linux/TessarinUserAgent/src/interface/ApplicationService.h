#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusError>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <cstddef>
#include <functional>
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
class ApplicationService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

 public:
    enum class Role {
        first,   // the name is ours
        second,  // somebody else has it
        alone    // there is no bus to tell
    };

    // URLs in one request; who has more sends several.
    static constexpr int kMostUrls = 100;

    explicit ApplicationService(QDBusConnection bus);
    ~ApplicationService() override;  // releases the name

    // Waits for the bus. Logs nothing: the settings are not read yet.
    Role claim();

    // What became of a launch.
    struct Launch {
        Role role = Role::alone;
        std::string failure;  // of the second: why the first did not take all; empty when it did
    };
    // Claims the name or, when somebody has it, hands the request over; when that one leaves meanwhile, once
    // more. Waits for who has the name at most that long. What was handed over is no longer in the request.
    // `willWait` is called before that; when it returns false the request is given up.
    Launch claimOrHandOver(LaunchRequest& request, std::chrono::milliseconds patience,
                           const std::function<bool()>& willWait);

    // Why the bus did not give the name to one that is alone; empty when there is no bus.
    const std::string& refusal() const { return refusal_; }

    // Called with each request that arrives, on the event loop, and returns soon: the sender waits. Returns
    // how many URLs it could not take; the sender is told. Without a handler requests are refused.
    void setHandler(std::function<std::size_t(const LaunchRequest&)> handler);

    // The first becomes nobody: gives the name back, then its object. Requests that are not answered yet are
    // refused, so that their sender claims the name. May be called again.
    void release();

 public slots:  // NOLINT(readability-redundant-access-specifiers)
    Q_SCRIPTABLE void Activate(const QVariantMap& platformData);
    Q_SCRIPTABLE void Open(const QStringList& urls, const QVariantMap& platformData);
    Q_SCRIPTABLE void ActivateAction(const QString& action, const QVariantList& parameter,
                                     const QVariantMap& platformData);

 private:
    std::string handOver(LaunchRequest& request, std::chrono::steady_clock::time_point deadline);
    QString owner() const;
    void refuse(QDBusError::ErrorType type, const std::string& why) const;

    QDBusConnection bus_;
    bool isFirst_ = false;
    std::function<std::size_t(const LaunchRequest&)> handler_;
    std::string refusal_;
};

// The activation token of this process's own launch, removed from the environment.
std::string TakeActivationToken();

}  // namespace useragent
