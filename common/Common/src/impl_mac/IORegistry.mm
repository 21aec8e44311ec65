#import "IORegistry.h"

#import <Foundation/Foundation.h>
#import <IOKit/IOKitLib.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <mach/mach_port.h>

#include <algorithm>
#include <array>

#include "common/ScopedAction.h"
#import "common_mac/CFAutoPointer.h"
#import "common_mac/FoundationBridges.h"

namespace cmn {

namespace {

// The system's own port to the registry, under the name that every version knows.
constexpr mach_port_t kMainPort = MACH_PORT_NULL;

using MACAddress = std::array<unsigned char, 6>;

// The address of the controller behind an interface, into `address` when it has one.
void ReadMACAddress(io_object_t interface, MACAddress& address) {
    io_registry_entry_t controller = IO_OBJECT_NULL;
    if (IORegistryEntryGetParentEntry(interface, "IOService", &controller) != KERN_SUCCESS) {
        return;
    }
    const ScopedAction release([controller] { IOObjectRelease(controller); });
    const CFAutoPointer property(
        IORegistryEntryCreateCFProperty(controller, CFSTR("IOMACAddress"), kCFAllocatorDefault, 0));
    const auto data = property.as<CFDataRef>(CFDataGetTypeID());
    if (data != nullptr && CFDataGetLength(data) >= static_cast<CFIndex>(address.size())) {
        std::copy_n(CFDataGetBytePtr(data), address.size(), address.begin());
    }
}

}  // namespace

std::string PrimaryInterfaceMACAddress() {
    CFMutableDictionaryRef const matching = IOServiceMatching("IOEthernetInterface");
    if (matching == nullptr) {
        return {};
    }
    const CFAutoPointer primary(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!primary) {
        CFRelease(matching);
        return {};
    }
    const auto match = static_cast<CFMutableDictionaryRef>(const_cast<void*>(primary.get()));
    CFDictionarySetValue(match, CFSTR("IOPrimaryInterface"), kCFBooleanTrue);
    CFDictionarySetValue(matching, CFSTR("IOPropertyMatch"), match);

    io_iterator_t interfaces = IO_OBJECT_NULL;
    // Consumes the dictionary.
    if (IOServiceGetMatchingServices(kMainPort, matching, &interfaces) != KERN_SUCCESS) {
        return {};
    }
    const ScopedAction release([interfaces] { IOObjectRelease(interfaces); });
    MACAddress address{};
    while (const io_object_t interface = IOIteratorNext(interfaces)) {
        ReadMACAddress(interface, address);
        IOObjectRelease(interface);
    }
    return fmt::format("{:02X}", fmt::join(address, ""));
}

std::string ConsoleUserName() {
    const io_registry_entry_t root = IORegistryGetRootEntry(kMainPort);
    const ScopedAction release([root] {
        if (root != IO_OBJECT_NULL) {
            IOObjectRelease(root);
        }
    });
    CFMutableDictionaryRef properties = nullptr;
    if (IORegistryEntryCreateCFProperties(root, &properties, kCFAllocatorDefault, 0) != KERN_SUCCESS) {
        return {};
    }
    NSDictionary* const all = (__bridge_transfer NSDictionary*)properties;
    id const users = all[@"IOConsoleUsers"];
    if (![users isKindOfClass:[NSArray class]]) {
        return {};
    }
    for (id user in (NSArray*)users) {
        if (![user isKindOfClass:[NSDictionary class]]) {
            continue;
        }
        id const onConsole = ((NSDictionary*)user)[@"kCGSSessionOnConsoleKey"];
        id const name = ((NSDictionary*)user)[@"kCGSSessionUserNameKey"];
        if ([onConsole isKindOfClass:[NSNumber class]] && [onConsole boolValue] &&
            [name isKindOfClass:[NSString class]]) {
            return [name stdString];
        }
    }
    return {};
}

}  // namespace cmn
