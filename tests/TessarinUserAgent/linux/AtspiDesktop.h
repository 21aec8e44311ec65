#pragma once

#include <QDBusMessage>
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/PrivateBus.h"
#include "support/RawPeer.h"

namespace fake {

// A desktop's accessibility as far as an agent sees it: a session bus with the service that tells where the
// accessibility bus is and whether it is switched on, that bus itself, and the registry on it.
class AtspiDesktop {
 public:
    AtspiDesktop();

    PrivateBus sessionBus;
    PrivateBus accessibilityBus;

    std::atomic<bool> isEnabled{true};

    // Applications in the order of their registration.
    void registerApplication(const std::string& busName);
    void unregisterApplication(const std::string& busName);

    // "event busname" of what is registered now, in the order of the registrations.
    std::vector<std::string> registeredEvents() const;

    // Questions that registry and session bus were asked.
    int calls() const;

    // The accessibility bus and the registry end; `returnBus` brings new ones, without any application.
    void dropBus();
    void returnBus();
    // The registry ends, the bus does not.
    void dropRegistry();
    // The registry stays and answers nothing any more.
    void holdRegistry();
    // A new registry takes the place of the old one, and knows nothing.
    void restartRegistry();

 private:
    void startRegistry();
    void onSessionCall(const QDBusMessage& call, QDBusConnection connection);
    void onRegistryCall(const QDBusMessage& call, QDBusConnection connection);

    mutable std::mutex mutex_;  // guards what follows
    std::vector<std::string> applications_;
    std::vector<std::string> events_;
    bool isHeld_ = false;
    int calls_ = 0;

    std::unique_ptr<RawPeer> session_;
    std::unique_ptr<RawPeer> registry_;
};

}  // namespace fake
