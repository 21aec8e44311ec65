#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "accessibility/AtspiElement.h"
#include "accessibility/Session.h"
#include "useragent/Accessibility.h"

namespace useragent {

// One notification of one application. Lives in the bus's thread, where its signals arrive; made, opened and
// closed on any thread. What it finds out is told on the main thread.
class Subscription : public std::enable_shared_from_this<Subscription> {
 public:
    using Ptr = std::shared_ptr<Subscription>;

    // What a kind of subscription listens to.
    struct Source {
        atspi::ObjectRef object;  // an empty path means all objects of the application
        const char* interface;
        const char* member;
        const char* event;  // as the registry knows it
    };

    virtual ~Subscription() = default;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    AXError open(cmn::bus::Deadline deadline);
    void close();

    // Notifications are passed on only while this is on. That the bus is lost is told then if it was before.
    void setDelivering(bool delivering);

    // The following are called in the bus's thread.

    // An application that had not answered does again.
    virtual void recovered(const std::string& /*busName*/) {}
    // Signals may have been missed.
    virtual void refresh() {}
    // The bus the subscription was made on is gone. Counts once.
    void lost();

 protected:
    Subscription(const std::shared_ptr<Session>& session, std::int32_t pid, Source source,
                 AXObserverCallback callback);

    virtual void signalled(const cmn::bus::Message& signal) = 0;
    // Any thread.
    virtual void tellLoss() {}

    // Asks the application without waiting. False when it cannot be asked, because it is known not to answer
    // or all is over. `done` is called in the bus's thread, unless this was closed meanwhile.
    template <typename T>
    bool ask(const atspi::Query<T>& query, std::function<void(const cmn::bus::Result<T>&)> done) {
        const std::shared_ptr<Session> alive = session();
        if (!alive || isClosed() || alive->silent->isSilent(query.destination)) {
            return false;
        }
        cmn::bus::Ask<T>(*alive->connection, query, alive->deadline(),
                         [weak = weak_from_this(), done = std::move(done)](const auto& answer) {
                             const auto self = weak.lock();
                             if (self && !self->isClosed()) {
                                 self->noteSilence(answer ? nullptr : &answer.error());
                                 done(answer);
                             }
                         });
        return true;
    }

    // `isTold`, of this object, is set on the main thread: what is told already is not told again.
    void deliver(AXElementRef element, const char* notification, bool* isTold = nullptr);
    std::shared_ptr<Session> session() const { return session_.lock(); }
    const atspi::ObjectRef& object() const { return source_.object; }

 private:
    bool isClosed() const;
    bool isDelivering() const;
    void noteSilence(const cmn::bus::Error* error) const;

    const std::weak_ptr<Session> session_;
    const std::shared_ptr<cmn::Dispatch> dispatch_;
    const std::int32_t pid_;
    const Source source_;
    const AXObserverCallback callback_;

    mutable std::mutex mutex_;  // guards what follows
    std::shared_ptr<cmn::bus::Subscription> signals_;
    bool registered_ = false;
    bool closed_ = false;
    bool delivering_ = false;
    bool lost_ = false;
};

}  // namespace useragent
