#pragma once

#include <CoreFoundation/CFBase.h>

typedef const struct AuthorizationOpaqueRef* AuthorizationRef;

typedef CF_OPTIONS(UInt32, AuthorizationFlags) {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = (1 << 0),
    kAuthorizationFlagExtendRights = (1 << 1),
};

typedef const char* AuthorizationString;

typedef struct {
    AuthorizationString _Nonnull name;
    size_t valueLength;
    void* _Nullable value;
    UInt32 flags;
} AuthorizationItem;

typedef struct {
    UInt32 count;
    AuthorizationItem* _Nullable items;
} AuthorizationItemSet;

typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;
