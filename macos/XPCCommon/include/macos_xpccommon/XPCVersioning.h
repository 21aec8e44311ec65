#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

// The one message every service of the product answers.
@protocol XPCVersioning
- (void)version:(void (^)(NSString* version))reply;
@end

NS_ASSUME_NONNULL_END
