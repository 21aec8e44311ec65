#pragma once

#include <CoreFoundation/CFBase.h>
#include <device/device_types.h>
#include <mach/kern_return.h>
#include <mach/mach_types.h>

typedef UInt32 IOOptionBits;
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;

#define IO_OBJECT_NULL ((io_object_t)0)
