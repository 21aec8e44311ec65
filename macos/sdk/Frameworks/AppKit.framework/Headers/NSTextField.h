#pragma once

#include <AppKit/NSColor.h>
#include <AppKit/NSControl.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSTextField : NSControl
@property(nullable, copy) NSColor* textColor;
@property(getter=isEditable) BOOL editable;
@property(getter=isSelectable) BOOL selectable;
@end

@interface NSTextField (NSTextFieldConvenience)
+ (instancetype)labelWithString:(NSString*)stringValue;
@end

NS_ASSUME_NONNULL_END
