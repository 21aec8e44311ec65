#include <dispatch/dispatch.h>
#include <os/availability.h>

#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")

// In seconds.
typedef double NSTimeInterval;
typedef CGRect NSRect;

static inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat w, CGFloat h) {
    NSRect rect = {{x, y}, {w, h}};
    return rect;
}
