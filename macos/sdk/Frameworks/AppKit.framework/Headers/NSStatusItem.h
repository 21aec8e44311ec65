#pragma once

#include <AppKit/NSStatusBarButton.h>
#include <Foundation/Foundation.h>

@class NSMenu;
@class NSStatusBar;

NS_ASSUME_NONNULL_BEGIN

@interface NSStatusItem : NSObject
@property CGFloat length;
@property(nullable, strong) NSMenu* menu;
@property(nullable, readonly, strong) NSStatusBarButton* button;
@property(getter=isVisible) BOOL visible;
@end

NS_ASSUME_NONNULL_END
