#pragma once

#include <AppKit/NSStatusItem.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

static const CGFloat NSVariableStatusItemLength = -1.0;

@interface NSStatusBar : NSObject
@property(class, readonly, strong) NSStatusBar* systemStatusBar;
// The item leaves the bar when nobody holds it.
- (NSStatusItem*)statusItemWithLength:(CGFloat)length;
@end

NS_ASSUME_NONNULL_END
