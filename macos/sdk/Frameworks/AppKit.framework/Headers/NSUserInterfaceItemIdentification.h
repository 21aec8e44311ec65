#pragma once

#include <Foundation/Foundation.h>

typedef NSString* NSUserInterfaceItemIdentifier;

@protocol NSUserInterfaceItemIdentification
@property(nullable, copy) NSUserInterfaceItemIdentifier identifier;
@end
