#pragma once

#include <AppKit/AppKitDefines.h>
#include <Foundation/NSAttributedString.h>

APPKIT_EXTERN const NSAttributedStringKey _Nonnull NSForegroundColorAttributeName;
