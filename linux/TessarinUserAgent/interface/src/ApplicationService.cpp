#include "linux_interface/ApplicationService.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <algorithm>
#include <exception>
#include <utility>

#include "common/log.h"

namespace useragent {

namespace {

constexpr const char* kObjectPath = "/com/tessarin/TessarinUserAgent";
constexpr const char* kInterface = "org.freedesktop.Application";
constexpr const char* kTokenKey = "activation-token";
constexpr const char* kStartupIdKey = "desktop-startup-id";

// A caller may be anybody on the session bus.
constexpr qsizetype kMostUrls = 100;
constexpr qsizetype kLongestToken = 1024;
constexpr std::size_t kMostWaiting = 1000;

std::string TokenOf(const QVariantMap& platformData) {
    QString token = platformData.value(kTokenKey).toString();
    if (token.isEmpty()) {
        token = platformData.value(kStartupIdKey).toString();
    }
    return token.size() <= kLongestToken ? token.toStdString() : std::string();
}

}  // namespace

ApplicationService::ApplicationService(QDBusConnection bus) : bus_(std::move(bus)) {}

ApplicationService::~ApplicationService() {
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
        TLOG_WARN("The session bus does not give the agent its name: {}",
                  answer.error().message().toStdString());
        return Role::alone;
    }
    return answer == QDBusConnectionInterface::ServiceRegistered ? Role::first : Role::second;
}

std::string ApplicationService::handOver(const LaunchRequest& request, std::chrono::milliseconds deadline) {
    QStringList urls;
    for (const std::string& url : request.urls) {
        urls.append(QString::fromStdString(url));
    }
    QVariantMap platformData;
    if (!request.activationToken.empty()) {
        const QString token = QString::fromStdString(request.activationToken);
        platformData = {{kTokenKey, token}, {kStartupIdKey, token}};
    }
    QDBusMessage message = QDBusMessage::createMethodCall(kApplicationName, kObjectPath, kInterface,
                                                          urls.isEmpty() ? "Activate" : "Open");
    if (!urls.isEmpty()) {
        message << urls;
    }
    message << platformData;
    const QDBusMessage answer = bus_.call(message, QDBus::Block, static_cast<int>(deadline.count()));
    return answer.type() == QDBusMessage::ReplyMessage ? std::string() : answer.errorMessage().toStdString();
}

void ApplicationService::setHandler(std::function<void(const LaunchRequest&)> handler) {
    handler_ = std::move(handler);
    if (!handler_) {
        return;
    }
    for (const LaunchRequest& request : std::exchange(waiting_, {})) {
        deliver(request);
    }
}

void ApplicationService::deliver(const LaunchRequest& request) const {
    try {
        handler_(request);
    } catch (const std::exception& e) {
        TLOG_ERROR("A request to open something failed: {}", e.what());
    }
}

void ApplicationService::Activate(const QVariantMap&) {}

void ApplicationService::Open(const QStringList& urls, const QVariantMap& platformData) {
    LaunchRequest request;
    for (const QString& url : urls.first(std::min(urls.size(), kMostUrls))) {
        request.urls.push_back(url.toStdString());
    }
    request.activationToken = TokenOf(platformData);
    if (handler_) {
        deliver(request);
    } else if (waiting_.size() < kMostWaiting) {
        waiting_.push_back(std::move(request));
    }
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
