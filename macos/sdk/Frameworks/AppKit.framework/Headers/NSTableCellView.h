#pragma once

#include <AppKit/NSTextField.h>
#include <AppKit/NSView.h>

@interface NSTableCellView : NSView
@property(nullable, strong) id objectValue;
@property(nullable, assign) NSTextField* textField;
@end
