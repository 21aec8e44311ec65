#pragma once

#include "accessibility/Subscription.h"
#include "accessibility/ValueFollower.h"

namespace useragent {

// "AXValueChanged" of one text field. Reads the text after a change, so that the notification brings it
// along.
class FieldSubscription final : public Subscription {
 public:
    FieldSubscription(const std::shared_ptr<Session>& session, std::shared_ptr<const AtspiElement> field,
                      AXObserverCallback callback);

    void recovered(const std::string& busName) override;
    void refresh() override;

 protected:
    void signalled(const cmn::bus::Message& /*signal*/) override { refresh(); }

 private:
    void refreshLater();
    void finishRead(const cmn::bus::Result<std::string>& text);

    const std::shared_ptr<const AtspiElement> field_;
    ValueFollower follower_;
};

}  // namespace useragent
