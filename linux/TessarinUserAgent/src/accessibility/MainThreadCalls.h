#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <chrono>
#include <functional>
#include <memory>

#include "usercommon/Dispatch.h"

namespace useragent {

// Asynchronous calls whose answers are handled on the main thread. Made and destroyed there; may be used from
// any thread.
class MainThreadCalls {
 public:
    using Handler = std::function<void(const QDBusMessage& reply)>;

    explicit MainThreadCalls(std::shared_ptr<cmn::Dispatch> dispatch);
    // Handlers whose answers are outstanding are not called any more.
    ~MainThreadCalls();
    MainThreadCalls(const MainThreadCalls&) = delete;
    MainThreadCalls& operator=(const MainThreadCalls&) = delete;

    // An unanswered call is handled with an error for which `IsTimeout` holds. On the main thread the answer
    // is handled in order with the signals of the same sender.
    void call(const QDBusConnection& connection, const QDBusMessage& message,
              std::chrono::milliseconds timeout, Handler handler);

    // The same for a call that is already on its way.
    void whenFinished(const QDBusPendingCall& call, Handler handler);

    // Runs the task on the main thread, not before this returns.
    void post(std::function<void()> task);

 private:
    class Watchers;

    const std::shared_ptr<cmn::Dispatch> dispatch_;
    const std::shared_ptr<Watchers> watchers_;
};

}  // namespace useragent
