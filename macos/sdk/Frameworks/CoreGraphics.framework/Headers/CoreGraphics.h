#pragma once

#include <CoreGraphics/CGGeometry.h>
#include <CoreGraphics/CGWindow.h>
