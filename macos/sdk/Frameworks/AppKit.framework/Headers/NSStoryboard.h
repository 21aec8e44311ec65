#pragma once

#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

typedef NSString* NSStoryboardName;
typedef NSString* NSStoryboardSceneIdentifier;

@interface NSStoryboard : NSObject
// The main bundle's when null. Throws NSException when there is none of this name.
+ (instancetype)storyboardWithName:(NSStoryboardName)name bundle:(nullable NSBundle*)storyboardBundleOrNil;
// Throws NSException when there is no scene of this identifier.
- (id)instantiateControllerWithIdentifier:(NSStoryboardSceneIdentifier)identifier;
@end

NS_ASSUME_NONNULL_END
