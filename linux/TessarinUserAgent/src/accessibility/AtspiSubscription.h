#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <cstdint>
#include <memory>
#include <mutex>

#include "accessibility/AccessibilityBus.h"
#include "accessibility/AtspiElement.h"
#include "useragent/Accessibility.h"

namespace useragent {

struct AtspiCore;

// One notification of one application. Lives on the main thread, where its signals arrive; made, opened and
// closed on any thread.
class AtspiSubscription : public QObject, public std::enable_shared_from_this<AtspiSubscription> {
    Q_OBJECT

 public:
    using Ptr = std::shared_ptr<AtspiSubscription>;

    // What a kind of subscription listens to.
    struct Source {
        atspi::ObjectRef object;  // an empty path means all objects of the application
        const char* interface;
        const char* member;
        const char* event;  // as the registry knows it
    };

    ~AtspiSubscription() override;

    AXError open(Deadline deadline);
    void close();

    // Notifications are passed on only while this is on.
    void setDelivering(bool delivering);

    const BusLink& link() const { return link_; }

    // The following are called on the main thread.

    // An application that had not answered does again.
    virtual void recovered(const QString& /*busName*/) {}
    // Signals may have been missed.
    virtual void refresh() {}
    // The bus the subscription was made on is gone.
    virtual void lost() {}

    bool isBusy() const { return busy_ > 0; }
    bool isClosed() const;

 protected:
    AtspiSubscription(std::weak_ptr<AtspiCore> core, BusLink link, Source source,
                      AXObserverCallback callback);

    virtual void signalled(const QDBusMessage& signal) = 0;

    void deliver(const AXElementRef& element, const char* notification);
    std::shared_ptr<AtspiCore> core() const { return core_.lock(); }
    const Source& source() const { return source_; }

 private slots:
    void onSignal(const QDBusMessage& signal);

 private:
    const std::weak_ptr<AtspiCore> core_;
    BusLink link_;
    const Source source_;
    const AXObserverCallback callback_;
    int busy_ = 0;  // main thread only

    mutable std::mutex mutex_;  // guards what follows
    bool registered_ = false;
    bool closed_ = false;
    bool delivering_ = false;
};

}  // namespace useragent
