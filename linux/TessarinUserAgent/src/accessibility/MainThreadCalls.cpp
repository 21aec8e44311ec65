#include "accessibility/MainThreadCalls.h"

#include <QDBusPendingCallWatcher>
#include <QObject>
#include <QThread>
#include <utility>

namespace useragent {

// Owns the watchers of the outstanding calls; used and destroyed on the main thread only.
class MainThreadCalls::Watchers {
 public:
    bool isHere() const { return parent_.thread() == QThread::currentThread(); }

    void watch(const QDBusPendingCall& call, Handler handler) {
        auto* const watcher = new QDBusPendingCallWatcher(call, &parent_);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                         [handler = std::move(handler)](QDBusPendingCallWatcher* finished) {
                             finished->deleteLater();
                             handler(finished->reply());
                         });
    }

 private:
    QObject parent_;
};

MainThreadCalls::MainThreadCalls(std::shared_ptr<cmn::Dispatch> dispatch)
    : dispatch_(std::move(dispatch)), watchers_(std::make_shared<Watchers>()) {}

MainThreadCalls::~MainThreadCalls() = default;

void MainThreadCalls::call(const QDBusConnection& connection, const QDBusMessage& message,
                           std::chrono::milliseconds timeout, Handler handler) {
    whenFinished(connection.asyncCall(message, static_cast<int>(timeout.count())), std::move(handler));
}

void MainThreadCalls::whenFinished(const QDBusPendingCall& call, Handler handler) {
    if (watchers_->isHere()) {
        watchers_->watch(call, std::move(handler));
        return;
    }
    post([watchers = std::weak_ptr(watchers_), call, handler = std::move(handler)]() mutable {
        if (const auto alive = watchers.lock()) {
            alive->watch(call, std::move(handler));
        }
    });
}

void MainThreadCalls::post(std::function<void()> task) {
    dispatch_->asyncMain(std::move(task));
}

}  // namespace useragent
