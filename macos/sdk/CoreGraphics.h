#define kCGNullWindowID ((uint32_t)0)
