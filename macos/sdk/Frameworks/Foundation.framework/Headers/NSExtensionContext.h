#pragma once

#include <Foundation/NSObject.h>

@interface NSExtensionContext : NSObject
@end
