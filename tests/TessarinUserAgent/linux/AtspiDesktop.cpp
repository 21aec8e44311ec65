#include "AtspiDesktop.h"

#include <QDBusConnection>
#include <QDBusVariant>
#include <algorithm>
#include <utility>

#include "AtspiApplication.h"
#include "AtspiTypes.h"

namespace fake {

AtspiDesktop::AtspiDesktop() {
    RegisterAtspiTypes();
    session_ = std::make_unique<RawPeer>(
        sessionBus.address(),
        [this](const QDBusMessage& call, QDBusConnection bus) { onSessionCall(call, std::move(bus)); });
    session_->own("org.a11y.Bus");
    startRegistry();
}

void AtspiDesktop::registerApplication(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    applications_.push_back(busName);
}

void AtspiDesktop::unregisterApplication(const std::string& busName) {
    const std::lock_guard lock(mutex_);
    applications_.erase(std::remove(applications_.begin(), applications_.end(), busName),
                        applications_.end());
}

std::vector<std::string> AtspiDesktop::registeredEvents() const {
    const std::lock_guard lock(mutex_);
    return events_;
}

void AtspiDesktop::dropBus() {
    registry_.reset();
    accessibilityBus.kill();
    const std::lock_guard lock(mutex_);
    applications_.clear();
    events_.clear();
}

void AtspiDesktop::returnBus() {
    accessibilityBus.start();
    startRegistry();
}

void AtspiDesktop::dropRegistry() {
    registry_.reset();
}

void AtspiDesktop::holdRegistry() {
    const std::lock_guard lock(mutex_);
    isHeld_ = true;
}

int AtspiDesktop::calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

void AtspiDesktop::restartRegistry() {
    dropRegistry();
    {
        const std::lock_guard lock(mutex_);
        applications_.clear();
        events_.clear();
    }
    startRegistry();
}

void AtspiDesktop::startRegistry() {
    registry_ = std::make_unique<RawPeer>(
        accessibilityBus.address(),
        [this](const QDBusMessage& call, QDBusConnection bus) { onRegistryCall(call, std::move(bus)); });
    registry_->own("org.a11y.atspi.Registry");
}

void AtspiDesktop::onSessionCall(const QDBusMessage& call, QDBusConnection connection) {
    const std::string member = call.member().toStdString();
    {
        const std::lock_guard lock(mutex_);
        ++calls_;
    }
    if (member == "GetAddress") {
        connection.send(call.createReply(QString::fromStdString(accessibilityBus.address())));
    } else if (member == "Get") {
        connection.send(call.createReply(QVariant::fromValue(QDBusVariant(isEnabled.load()))));
    } else if (member == "Set") {
        isEnabled = call.arguments().at(2).value<QDBusVariant>().variant().toBool();
        connection.send(call.createReply());
    } else {
        connection.send(call.createErrorReply(QDBusError::UnknownMethod, QStringLiteral("not known")));
    }
}

void AtspiDesktop::onRegistryCall(const QDBusMessage& call, QDBusConnection connection) {
    const std::string member = call.member().toStdString();
    const std::lock_guard lock(mutex_);
    ++calls_;
    if (isHeld_) {
        return;
    }
    if (member == "GetChildren") {
        AtspiReferences references;
        for (const std::string& application : applications_) {
            references.push_back({QString::fromStdString(application),
                                  QDBusObjectPath(QString::fromLatin1(AtspiApplication::kRoot))});
        }
        connection.send(call.createReply(QVariant::fromValue(references)));
    } else if (member == "RegisterEvent") {
        events_.push_back(call.arguments().at(0).toString().toStdString() + " " +
                          call.arguments().at(2).toString().toStdString());
        connection.send(call.createReply());
    } else if (member == "DeregisterEvent") {
        const std::string event = call.arguments().at(0).toString().toStdString() + " ";
        std::erase_if(events_, [&](const std::string& entry) { return entry.starts_with(event); });
        connection.send(call.createReply());
    } else {
        connection.send(call.createErrorReply(QDBusError::UnknownMethod, QStringLiteral("not known")));
    }
}

}  // namespace fake
