#import "MacXPCListener.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/log.h"

@interface TessarinListenerDelegate : NSObject <NSXPCListenerDelegate>
- (instancetype)initWithListener:(std::weak_ptr<cmn::MacXPCListener>)listener;
@end

@implementation TessarinListenerDelegate {
    std::weak_ptr<cmn::MacXPCListener> _listener;
}

- (instancetype)initWithListener:(std::weak_ptr<cmn::MacXPCListener>)listener {
    self = [super init];
    if (self != nil) {
        _listener = std::move(listener);
    }
    return self;
}

- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection {
    const auto owner = _listener.lock();
    return owner && owner->offer(newConnection) ? YES : NO;
}

@end

namespace cmn {

MacXPCListener::MacXPCListener(NSXPCListener* listener) : listener_(listener), listenerDelegate_(nil) {}

MacXPCListener::~MacXPCListener() {
    [listener_ invalidate];
}

void MacXPCListener::setDelegate(std::weak_ptr<XPCListenerDelegate> delegate) {
    const std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

void MacXPCListener::resume() {
    listenerDelegate_ = [[TessarinListenerDelegate alloc] initWithListener:weak_from_this()];
    listener_.delegate = listenerDelegate_;
    [listener_ resume];
}

void MacXPCListener::invalidate() {
    std::set<std::shared_ptr<MacXPCConnection>> peers;
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        peers.swap(peers_);
    }
    [listener_ invalidate];
    for (const auto& peer : peers) {
        peer->invalidate();
    }
}

bool MacXPCListener::offer(NSXPCConnection* peer) {
    const auto connection = std::make_shared<MacXPCConnection>(peer);
    std::shared_ptr<XPCListenerDelegate> delegate;
    {
        const std::lock_guard lock(mutex_);
        delegate = delegate_.lock();
        if (!delegate || ended_) {
            return false;
        }
        // Before it is resumed: it may end at once.
        peers_.insert(connection);
    }
    connection->setEnded([weakSelf = weak_from_this(), peer = connection.get()] {
        if (const auto self = weakSelf.lock()) {
            self->forget(peer);
        }
    });
    bool accepted = false;
    try {
        accepted = delegate->listenerShouldAcceptNewConnection(*this, connection);
    } catch (const std::exception& error) {
        TLOG_ERROR("A new connection could not be accepted: {}", error.what());
    }
    if (!accepted) {
        forget(connection.get());
    }
    return accepted;
}

void MacXPCListener::forget(const MacXPCConnection* peer) {
    std::shared_ptr<MacXPCConnection> forgotten;  // goes without the lock
    const std::lock_guard lock(mutex_);
    const auto found =
        std::find_if(peers_.begin(), peers_.end(), [peer](const auto& kept) { return kept.get() == peer; });
    if (found != peers_.end()) {
        forgotten = *found;
        peers_.erase(found);
    }
}

}  // namespace cmn
