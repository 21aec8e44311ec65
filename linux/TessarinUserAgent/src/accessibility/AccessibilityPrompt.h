#pragma once

#include <QDBusMessage>
#include <QObject>
#include <cstdint>
#include <memory>

#include "accessibility/AtspiCore.h"

namespace useragent {

// Asks the user, once, to switch accessibility on for the session: a desktop notification with a button that
// does it. Main thread.
class AccessibilityPrompt : public QObject {
    Q_OBJECT

 public:
    explicit AccessibilityPrompt(std::weak_ptr<AtspiCore> core);

    // Does not wait. Nothing is shown when accessibility turns out to be on.
    void ask();

 private slots:
    void actionInvoked(const QDBusMessage& signal);

 private:
    void notify();
    void notified(const QDBusMessage& reply);
    void switchOn();

    const std::weak_ptr<AtspiCore> core_;
    bool asked_ = false;
    std::uint32_t notification_ = 0;
};

}  // namespace useragent
