#pragma once

#include <AppKit/NSUserInterfaceItemIdentification.h>
#include <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSTableColumn : NSObject <NSCoding, NSUserInterfaceItemIdentification>
@property(copy) NSUserInterfaceItemIdentifier identifier;
@property(copy) NSString* title;
// In points.
@property CGFloat width;
@property CGFloat minWidth;
@property CGFloat maxWidth;
@end

NS_ASSUME_NONNULL_END
