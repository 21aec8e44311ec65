#pragma once

#import <Foundation/Foundation.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#import "MacXPCConnection.h"
#import "MacXPCListener.h"

namespace fake {

// The transport of macOS without launchd: its connections lead to its listeners, which have no name.
class AnonymousTransport final : public cmn::XPCTransport {
 public:
    std::shared_ptr<cmn::XPCConnection> createConnection(const std::string& name,
                                                         cmn::XPCConnectionOptions) override {
        const std::lock_guard lock(mutex_);
        // Without a listener, to one that nobody answers.
        NSXPCListener* const listener = listeners_.contains(name) ? listeners_[name] : ended();
        return std::make_shared<cmn::MacXPCConnection>(
            [[NSXPCConnection alloc] initWithListenerEndpoint:listener.endpoint]);
    }
    std::shared_ptr<cmn::XPCListener> createListener(const std::string& name) override {
        const std::lock_guard lock(mutex_);
        listeners_[name] = [NSXPCListener anonymousListener];
        return std::make_shared<cmn::MacXPCListener>(listeners_[name]);
    }

 private:
    static NSXPCListener* ended() {
        NSXPCListener* const listener = [NSXPCListener anonymousListener];
        [listener resume];
        [listener invalidate];
        return listener;
    }

    std::mutex mutex_;
    std::map<std::string, NSXPCListener*> listeners_;
};

}  // namespace fake
