#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "useragent/Accessibility.h"
#include "usercommon/Dispatch.h"

namespace useragent {

// Where the notifications of one observer go: to its callback, on the main thread, while it is on the main
// run loop. The last one that came before is told when it gets there, unless one like it was told meanwhile.
// Any thread.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
    Listener(std::shared_ptr<cmn::Dispatch> dispatch, AXObserverCallback callback);

    void tell(AXElementRef element, const char* notification);

    void setDelivering(bool delivering);
    // Nothing is told afterwards; a callback that is running may still finish.
    void close();

 private:
    struct Notification {
        AXElementRef element;
        const char* name = "";
    };

    void tellMissed();

    const std::shared_ptr<cmn::Dispatch> dispatch_;
    const AXObserverCallback callback_;

    std::mutex mutex_;  // guards what follows
    bool delivering_ = false;
    bool closed_ = false;
    Notification missed_;
};

// Those of one application. Not locked.
class Listeners {
 public:
    void add(const std::shared_ptr<Listener>& listener);
    // False when nobody is left to hear it.
    bool tell(const AXElementRef& element, const char* notification) const;

 private:
    std::vector<std::weak_ptr<Listener>> listeners_;
};

}  // namespace useragent
