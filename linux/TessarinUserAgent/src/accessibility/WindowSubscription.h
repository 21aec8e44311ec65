#pragma once

#include "accessibility/Subscription.h"

namespace useragent {

// "AXMainWindowChanged" of one application.
class WindowSubscription final : public Subscription {
 public:
    WindowSubscription(const std::shared_ptr<Session>& session, std::int32_t pid, const std::string& busName,
                       AXObserverCallback callback);

    void recovered(const std::string& busName) override;

 protected:
    void signalled(const cmn::bus::Message& signal) override;
    // Whoever follows the application has to find everything anew: told as another main window.
    void tellLoss() override { deliver(application_, kMainWindowChangedNotification, &isLossTold_); }

 private:
    // An application that did not say what kind of window it activated is asked once more when it answers
    // again.
    enum class Examination { first, unanswered, repeated };

    // Only frames are main windows.
    void examineActivated();
    void activated(const std::string& path, const cmn::bus::Result<atspi::Role>& role);

    const std::shared_ptr<const AtspiElement> application_;
    std::string mainWindow_;
    std::string lastActivated_;
    Examination examination_ = Examination::first;  // of that window
    bool isLossTold_ = false;                       // main thread only
};

}  // namespace useragent
