#include "accessibility/AtspiSubscription.h"

#include <QCoreApplication>
#include <QThread>
#include <utility>

#include "accessibility/AtspiCore.h"

namespace useragent {

AtspiSubscription::AtspiSubscription(std::weak_ptr<AtspiCore> core, BusLink link, Source source,
                                     AXObserverCallback callback)
    : core_(std::move(core)),
      link_(std::move(link)),
      source_(std::move(source)),
      callback_(std::move(callback)) {
    moveToThread(QCoreApplication::instance()->thread());
}

AtspiSubscription::~AtspiSubscription() = default;

AXError AtspiSubscription::open(Deadline deadline) {
    const std::shared_ptr<AtspiCore> alive = core();
    if (!alive) {
        return AXError::failure;
    }
    // First the ear, then the voice: nothing said in between is missed.
    if (!link_.connection.connect(source_.object.busName, source_.object.path,
                                  QLatin1String(source_.interface), QLatin1String(source_.member), this,
                                  SLOT(onSignal(QDBusMessage)))) {
        return AXError::cannotComplete;
    }
    const AXError error = alive->events.add(link_, source_.event, source_.object.busName, deadline);
    const std::lock_guard lock(mutex_);
    registered_ = error == AXError::success;
    return error;
}

void AtspiSubscription::close() {
    bool registered = false;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(closed_, true)) {
            return;
        }
        registered = registered_;
    }
    link_.connection.disconnect(source_.object.busName, source_.object.path, QLatin1String(source_.interface),
                                QLatin1String(source_.member), this, SLOT(onSignal(QDBusMessage)));
    const std::shared_ptr<AtspiCore> alive = core();
    if (registered && alive) {
        alive->events.remove(link_, source_.event, source_.object.busName);
    }
}

void AtspiSubscription::setDelivering(bool delivering) {
    const std::lock_guard lock(mutex_);
    delivering_ = delivering;
}

bool AtspiSubscription::isClosed() const {
    const std::lock_guard lock(mutex_);
    return closed_;
}

void AtspiSubscription::deliver(const AXElementRef& element, const char* notification) {
    {
        const std::lock_guard lock(mutex_);
        if (closed_ || !delivering_) {
            return;
        }
    }
    // The callback may close and let go of this object.
    ++busy_;
    callback_(element, notification);
    --busy_;
}

void AtspiSubscription::onSignal(const QDBusMessage& signal) {
    if (!isClosed()) {
        ++busy_;
        signalled(signal);
        --busy_;
    }
}

}  // namespace useragent
