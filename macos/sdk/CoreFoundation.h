#include <MacTypes.h>
#include <objc/NSObject.h>

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef signed long CFIndex;
typedef UInt32 CFStringEncoding;
typedef const __attribute__((objc_bridge(id))) void* CFTypeRef;
typedef double CGFloat;

#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))
