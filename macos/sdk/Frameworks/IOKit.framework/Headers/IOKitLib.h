#pragma once

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <IOKit/IOTypes.h>

CF_EXTERN_C_BEGIN

// The port on which the kernel's registry answers; zero means this one, too.
extern const mach_port_t kIOMasterPortDefault;

// Objects are let go of with this; `existing` and `parent` belong to the caller.
kern_return_t IOObjectRelease(io_object_t object);

// IO_OBJECT_NULL at the end. The object belongs to the caller.
io_object_t IOIteratorNext(io_iterator_t iterator);

CFMutableDictionaryRef _Nullable IOServiceMatching(const char* _Nonnull name);

// Consumes one reference of `matching`.
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef _Nullable matching,
                                           io_iterator_t* _Nonnull existing);

io_registry_entry_t IORegistryGetRootEntry(mach_port_t mainPort);

kern_return_t IORegistryEntryGetParentEntry(io_registry_entry_t entry, const io_name_t _Nonnull plane,
                                            io_registry_entry_t* _Nonnull parent);

CFTypeRef _Nullable IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef _Nonnull key,
                                                    CFAllocatorRef _Nullable allocator, IOOptionBits options);

// The dictionary belongs to the caller.
kern_return_t IORegistryEntryCreateCFProperties(io_registry_entry_t entry,
                                                CFMutableDictionaryRef _Nullable* _Nullable properties,
                                                CFAllocatorRef _Nullable allocator, IOOptionBits options);

CF_EXTERN_C_END
