#pragma once

#include "accessibility/AtspiSubscription.h"
#include "accessibility/ValueFollower.h"

namespace useragent {

// "AXValueChanged" of one text field. Reads the text after a change, so that the notification brings it
// along.
class ValueSubscription final : public AtspiSubscription {
 public:
    ValueSubscription(std::weak_ptr<AtspiCore> core, BusLink link, std::shared_ptr<const AtspiElement> field,
                      AXObserverCallback callback);

    void recovered(const QString& busName) override;
    void refresh() override;

 protected:
    void signalled(const QDBusMessage& signal) override;

 private:
    void refreshLater();
    void startRead();
    void finishRead(const QDBusMessage& reply);

    const std::shared_ptr<const AtspiElement> field_;
    ValueFollower follower_;
};

}  // namespace useragent
