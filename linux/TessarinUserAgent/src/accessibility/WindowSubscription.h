#pragma once

#include "accessibility/AtspiSubscription.h"

namespace useragent {

// "AXMainWindowChanged" of one application.
class WindowSubscription final : public AtspiSubscription {
 public:
    WindowSubscription(std::weak_ptr<AtspiCore> core, BusLink link, std::int32_t pid, const QString& busName,
                       AXObserverCallback callback);

    void recovered(const QString& busName) override;
    // Whoever follows the application has to find everything anew: told as another main window.
    void lost() override;

 protected:
    void signalled(const QDBusMessage& signal) override;

 private:
    // An application that did not say what kind of window it activated is asked once more when it answers
    // again.
    enum class Examination { first, unanswered, repeated };

    // Only frames are main windows.
    void examineActivated();
    void activated(const QString& path, const QDBusMessage& role);

    const std::int32_t pid_;
    const std::shared_ptr<const AtspiElement> application_;
    QString mainWindow_;
    QString lastActivated_;
    Examination examination_ = Examination::first;  // of that window
    bool isLost_ = false;
};

}  // namespace useragent
