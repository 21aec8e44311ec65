#pragma once

#include <AppKit/NSParagraphStyle.h>
#include <AppKit/NSView.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSControl : NSView
@property(nullable, weak) id target;
@property(nullable) SEL action;
@property(getter=isEnabled) BOOL enabled;
@property(copy) NSString* stringValue;
@property NSLineBreakMode lineBreakMode;
@end

NS_ASSUME_NONNULL_END
