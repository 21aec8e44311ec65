#pragma once

// In the place of the platform's header where its owner of references is tested without the platform: objects
// that count who owns them.
using CFTypeRef = const void*;
using CFTypeID = unsigned long;

struct CountedObject {
    CFTypeID type = 0;
    mutable int owners = 1;
};

inline const CountedObject& ObjectBehind(CFTypeRef reference) {
    return *static_cast<const CountedObject*>(reference);
}

// As on the platform, none of these takes null.
inline CFTypeRef CFRetain(CFTypeRef reference) {
    ++ObjectBehind(reference).owners;
    return reference;
}

inline void CFRelease(CFTypeRef reference) {
    --ObjectBehind(reference).owners;
}

inline CFTypeID CFGetTypeID(CFTypeRef reference) {
    return ObjectBehind(reference).type;
}
