#pragma once

#import <Foundation/Foundation.h>

#include <memory>
#include <mutex>
#include <set>

#import "MacXPCConnection.h"

@class TessarinListenerDelegate;

namespace cmn {

// One NSXPCListener. Keeps the connections of its peers until they end.
class MacXPCListener final : public XPCListener, public std::enable_shared_from_this<MacXPCListener> {
 public:
    // Not resumed.
    explicit MacXPCListener(NSXPCListener* listener);
    ~MacXPCListener() override;
    MacXPCListener(const MacXPCListener&) = delete;
    MacXPCListener& operator=(const MacXPCListener&) = delete;

    void setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) override;
    void resume() override;
    void invalidate() override;

    // Whether the peer was accepted.
    bool offer(NSXPCConnection* peer);

 private:
    void forget(const MacXPCConnection* peer);

    NSXPCListener* const listener_;
    TessarinListenerDelegate* listenerDelegate_;  // the listener holds it weakly

    std::mutex mutex_;  // guards what follows, never held across a call
    std::weak_ptr<XPCListenerDelegate> delegate_;
    std::set<std::shared_ptr<MacXPCConnection>> peers_;
    bool ended_ = false;
};

}  // namespace cmn
