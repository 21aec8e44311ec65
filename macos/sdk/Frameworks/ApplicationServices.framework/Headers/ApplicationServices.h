#pragma once

#include <ApplicationServices/AXConstants.h>
#include <ApplicationServices/AXUIElement.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
