#pragma once

#import <Foundation/Foundation.h>

#import "macos_xpccommon/XPCVersioning.h"

NS_ASSUME_NONNULL_BEGIN

// Gets the answer to `checkEncryptionStatus:delegate:`.
@protocol FinderExtensionDelegate
- (void)didCheckEncryptionStatus:(BOOL)encrypted;
@end

// Messages of the service "com.tessarin.FinderExtension".
@protocol FinderExtensionCommunicator <XPCVersioning>
- (void)checkEncryptionStatus:(NSString*)path delegate:(nullable NSObject<FinderExtensionDelegate>*)delegate;
- (void)decrypt:(NSString*)path withCompletion:(nullable void (^)(int status))completion;
// One dictionary with texts for each classifier that matched.
- (void)getScanResult:(NSString*)path
       withCompletion:(nullable void (^)(NSArray<NSDictionary*>* result))completion;
- (void)allowedExtensionsWithCompletion:(nullable void (^)(NSArray<NSString*>* extensions))completion;
- (void)checkFullDiskAccessWithCompletion:(nullable void (^)(BOOL granted))completion;
- (void)getUIVisibilityStatusesWithCompletion:
    (nullable void (^)(NSDictionary<NSString*, NSNumber*>* statuses))completion;
// `level` is a level's name ("Warn").
- (void)sendLogMessage:(NSString*)message level:(NSString*)level;
@end

NS_ASSUME_NONNULL_END
