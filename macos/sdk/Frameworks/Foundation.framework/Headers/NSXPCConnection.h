#pragma once

#include <Foundation/NSError.h>
#include <Foundation/NSSet.h>
#include <Foundation/NSString.h>
#include <bsm/audit.h>

@class NSXPCInterface;

NS_ASSUME_NONNULL_BEGIN

@protocol NSXPCProxyCreating
- (id)remoteObjectProxy;
// The handler or the reply of a message is called, never both.
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@optional
- (id)synchronousRemoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@end

typedef NS_OPTIONS(NSUInteger, NSXPCConnectionOptions) {
    // The service is registered in the system's domain, not in that of the user's session.
    NSXPCConnectionPrivileged = (1 << 12),
};

// Handlers, replies and messages to the exported object are called on a private queue, one at a time.
@interface NSXPCConnection : NSObject <NSXPCProxyCreating>
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
@property(nullable, strong) NSXPCInterface* exportedInterface;
@property(nullable, strong) id exportedObject;
@property(nullable, strong) NSXPCInterface* remoteObjectInterface;
@property(readonly, strong) id remoteObjectProxy;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@property(nullable, copy) void (^interruptionHandler)(void);
@property(nullable, copy) void (^invalidationHandler)(void);
// The process at the other end; known to a listener's delegate, to a client once the service was reached.
@property(readonly) au_asid_t auditSessionIdentifier;
@property(readonly) pid_t processIdentifier;
@property(readonly) uid_t effectiveUserIdentifier;
// The connection whose message, reply or error is being handled on this thread.
+ (nullable NSXPCConnection*)currentConnection;
- (void)resume;
// Every connection that was resumed must be invalidated before it is let go of.
- (void)invalidate;
@end

@protocol NSXPCListenerDelegate;

@interface NSXPCListener : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name;
@property(nullable, weak) id<NSXPCListenerDelegate> delegate;
- (void)resume;
- (void)invalidate;
@end

@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;
@end

@interface NSXPCInterface : NSObject
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@property(assign) Protocol* protocol;
// The classes that may be inside the collection that is this argument, the collection's own among them. With
// `ofReply` the argument is one of the reply block's. Counted from zero.
- (void)setClasses:(NSSet<Class>*)classes
       forSelector:(SEL)sel
     argumentIndex:(NSUInteger)arg
           ofReply:(BOOL)ofReply;
// This argument is an object that stays at its end and is called from the other.
- (void)setInterface:(NSXPCInterface*)ifc
         forSelector:(SEL)sel
       argumentIndex:(NSUInteger)arg
             ofReply:(BOOL)ofReply;
@end

NS_ASSUME_NONNULL_END
