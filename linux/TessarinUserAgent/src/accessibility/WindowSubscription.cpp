#include "accessibility/WindowSubscription.h"

#include <QDBusVariant>
#include <utility>

#include "accessibility/AtspiCore.h"

namespace useragent {

WindowSubscription::WindowSubscription(std::weak_ptr<AtspiCore> core, BusLink link, std::int32_t pid,
                                       const QString& busName, AXObserverCallback callback)
    : AtspiSubscription(
          std::move(core), std::move(link),
          {{busName, {}}, atspi::kWindowEventInterface, "Activate", atspi::kWindowActivateEvent},
          std::move(callback)),
      pid_(pid),
      application_(std::make_shared<AtspiElement>(pid)) {
    if (const std::shared_ptr<AtspiCore> alive = this->core()) {
        mainWindow_ = alive->applications.mainWindow(pid);
    }
}

void WindowSubscription::signalled(const QDBusMessage& signal) {
    if (signal.arguments().value(3).value<QDBusVariant>().variant().toString().isEmpty()) {
        return;  // without a title: a menu or a bubble
    }
    lastActivated_ = signal.path();
    examination_ = Examination::first;
    examineActivated();
}

void WindowSubscription::recovered(const QString& busName) {
    if (busName == source().object.busName && examination_ == Examination::unanswered) {
        examination_ = Examination::repeated;
        examineActivated();
    }
}

void WindowSubscription::examineActivated() {
    const std::shared_ptr<AtspiCore> alive = core();
    if (!alive || lastActivated_ == mainWindow_) {
        return;
    }
    const atspi::ObjectRef window{source().object.busName, lastActivated_};
    if (alive->breaker.isOpen(link(), window.busName)) {
        examination_ = Examination::unanswered;
        return;
    }
    alive->calls.call(link().connection, atspi::Call(window, atspi::kAccessibleInterface, "GetRole"),
                      alive->settings.callDeadline,
                      [self = weak_from_this(), path = window.path](const auto& role) {
                          if (const auto subscription = self.lock()) {
                              static_cast<WindowSubscription&>(*subscription).activated(path, role);
                          }
                      });
}

void WindowSubscription::activated(const QString& path, const QDBusMessage& role) {
    const std::shared_ptr<AtspiCore> alive = core();
    if (!alive || isClosed() || path != lastActivated_ || path == mainWindow_) {
        return;
    }
    if (IsTimeout(role)) {
        examination_ = examination_ == Examination::first ? Examination::unanswered : Examination::repeated;
        alive->breaker.trip(link(), source().object.busName, pid_);
    } else if (atspi::ReadNumber(role) == atspi::kRoleFrame) {
        mainWindow_ = path;
        alive->applications.setMainWindow(pid_, path);
        deliver(application_, kMainWindowChangedNotification);
    }
}

void WindowSubscription::lost() {
    if (!std::exchange(isLost_, true)) {
        deliver(application_, kMainWindowChangedNotification);
    }
}

}  // namespace useragent
