#include "interface/ApplicationService.h"

#include <fmt/format.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <functional>
#include <iterator>
#include <utility>

#include "common/log.h"
#include "useragent/PropertiesURL.h"

namespace useragent {

namespace {

constexpr const char* kObjectPath = "/com/tessarin/TessarinUserAgent";
constexpr const char* kInterface = "org.freedesktop.Application";
constexpr const char* kTokenKey = "activation-token";
constexpr const char* kStartupIdKey = "desktop-startup-id";

// A caller may be anybody on the session bus.
constexpr qsizetype kLongestToken = 1024;
// For the bus to take a name back; it goes with the connection in any case.
constexpr int kReleaseMilliseconds = 1000;

std::string TokenOf(const QVariantMap& platformData) {
    QString token = platformData.value(kTokenKey).toString();
    if (token.isEmpty()) {
        token = platformData.value(kStartupIdKey).toString();
    }
    return token.size() <= kLongestToken ? token.toStdString() : std::string();
}

QDBusMessage RequestMessage(const QStringList& urls, const std::string& activationToken) {
    QVariantMap platformData;
    if (!activationToken.empty()) {
        const QString token = QString::fromStdString(activationToken);
        platformData = {{kTokenKey, token}, {kStartupIdKey, token}};
    }
    QDBusMessage message = QDBusMessage::createMethodCall(kApplicationName, kObjectPath, kInterface,
                                                          urls.isEmpty() ? "Activate" : "Open");
    if (!urls.isEmpty()) {
        message << urls;
    }
    message << platformData;
    return message;
}

// At least one: none would be the library's own time limit.
int MillisecondsUntil(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 1));
}

}  // namespace

ApplicationService::ApplicationService(QDBusConnection bus) : bus_(std::move(bus)) {}

ApplicationService::~ApplicationService() {
    release();
    bus_.unregisterObject(kObjectPath);
}

ApplicationService::Role ApplicationService::claim() {
    if (!bus_.isConnected()) {
        return Role::alone;
    }
    // First the object: who owns the name is called at once.
    bus_.registerObject(kObjectPath, this, QDBusConnection::ExportScriptableSlots);
    const auto answer =
        bus_.interface()->registerService(kApplicationName, QDBusConnectionInterface::DontQueueService,
                                          QDBusConnectionInterface::DontAllowReplacement);
    if (!answer.isValid()) {
        refusal_ = answer.error().message().toStdString();
        return Role::alone;
    }
    isFirst_ = answer == QDBusConnectionInterface::ServiceRegistered;
    return isFirst_ ? Role::first : Role::second;
}

void ApplicationService::release() {
    if (std::exchange(isFirst_, false) && bus_.isConnected()) {
        bus_.interface()->setTimeout(kReleaseMilliseconds);
        const auto answer = bus_.interface()->unregisterService(kApplicationName);
        if (!answer.isValid()) {
            TLOG_WARN("The session bus does not take the agent's name back: {}",
                      answer.error().message().toStdString());
        }
        // From here on nobody finds us. Whose request has arrived but was not looked at is told that it found
        // no object.
        bus_.unregisterObject(kObjectPath);
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
    }
    handler_ = nullptr;  // with what it owns: after the name
}

QString ApplicationService::owner() const {
    return bus_.interface()->serviceOwner(kApplicationName).value();
}

ApplicationService::Launch ApplicationService::claimOrHandOver(LaunchRequest& request,
                                                               std::chrono::milliseconds patience,
                                                               const std::function<bool()>& willWait) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    Launch launch{claim(), {}};
    if (launch.role == Role::second && !willWait()) {
        return launch;
    }
    while (launch.role == Role::second) {
        const QString asked = owner();
        launch.failure = handOver(request, deadline);
        if (launch.failure.empty()) {
            return launch;
        }
        const Role again = claim();
        if (again == Role::first) {
            return {again, {}};
        }
        if (again == Role::alone || owner() == asked || std::chrono::steady_clock::now() >= deadline) {
            return launch;
        }
    }
    return launch;
}

// In as many messages as it takes.
std::string ApplicationService::handOver(LaunchRequest& request,
                                         std::chrono::steady_clock::time_point deadline) {
    do {
        const auto end = request.urls.begin() + std::min<std::ptrdiff_t>(std::ssize(request.urls), kMostUrls);
        QStringList urls;
        std::transform(request.urls.begin(), end, std::back_inserter(urls),
                       [](const std::string& url) { return QString::fromStdString(TextOfURL(url)); });
        const QDBusMessage answer = bus_.call(RequestMessage(urls, request.activationToken), QDBus::Block,
                                              MillisecondsUntil(deadline));
        if (answer.type() != QDBusMessage::ReplyMessage) {
            const auto notSent = std::distance(end, request.urls.end());
            return answer.errorMessage().toStdString() +
                   (notSent == 0 ? std::string() : fmt::format("; {} more URLs were not sent", notSent));
        }
        request.urls.erase(request.urls.begin(), end);
        request.activationToken.clear();
    } while (!request.urls.empty());
    return {};
}

void ApplicationService::setHandler(std::function<std::size_t(const LaunchRequest&)> handler) {
    handler_ = std::move(handler);
}

void ApplicationService::Activate(const QVariantMap&) {}

void ApplicationService::Open(const QStringList& urls, const QVariantMap& platformData) {
    const auto handler = handler_;  // it may replace itself
    if (!handler) {
        refuse(QDBusError::Failed, "the agent is not running");
        return;
    }
    if (urls.size() > kMostUrls) {
        refuse(QDBusError::LimitsExceeded, fmt::format("more than {} URLs in one request", kMostUrls));
        return;
    }
    LaunchRequest request{{}, TokenOf(platformData)};
    std::transform(urls.begin(), urls.end(), std::back_inserter(request.urls),
                   std::mem_fn(&QString::toStdString));
    try {
        if (const std::size_t dropped = handler(request); dropped != 0) {
            refuse(QDBusError::LimitsExceeded,
                   fmt::format("{} of {} URLs are dropped: too many are waiting", dropped, urls.size()));
        }
    } catch (const std::exception& e) {
        TLOG_ERROR("A request to open something failed: {}", e.what());
        refuse(QDBusError::Failed, e.what());
    }
}

void ApplicationService::refuse(QDBusError::ErrorType type, const std::string& why) const {
    sendErrorReply(type, QString::fromStdString(why));
}

void ApplicationService::ActivateAction(const QString&, const QVariantList&, const QVariantMap&) {}

std::string TakeActivationToken() {
    for (const char* name : {"XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID"}) {
        const QByteArray token = qgetenv(name);
        if (!token.isEmpty()) {
            qunsetenv("XDG_ACTIVATION_TOKEN");
            qunsetenv("DESKTOP_STARTUP_ID");
            return token.size() <= kLongestToken ? token.toStdString() : std::string();
        }
    }
    return {};
}

}  // namespace useragent
