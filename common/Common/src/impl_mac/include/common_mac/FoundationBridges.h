#pragma once

#import <Foundation/Foundation.h>

#include <string>
#include <vector>

NS_ASSUME_NONNULL_BEGIN

// Between Foundation objects and standard strings, which are UTF-8.

@interface NSString (CppStringUtils)
// Nil when the text is not UTF-8; ends at the first NUL.
+ (nullable instancetype)stringWithStdString:(const std::string&)string;
- (std::string)stdString;
@end

@interface NSURL (CppURLUtils)
// Nil when the text is not a URL.
+ (nullable instancetype)URLWithStdString:(const std::string&)string;
+ (nullable instancetype)fileURLWithStdString:(const std::string&)path;
- (std::string)stdString;
@end

@interface NSArray (CppVectorUtils)
// A mutable array. Throws std::runtime_error for a text that is not UTF-8.
+ (NSMutableArray<NSString*>*)arrayWithStringVector:(const std::vector<std::string>&)strings;
// The array's strings in their order; other elements count with their description.
- (std::vector<std::string>)stdStringVector;
@end

namespace cmn {

// "" for nil, which must not be sent a message that returns a C++ object.
// Not inline: a linker takes an object of a library only for a symbol, and the categories are none.
std::string ToStdString(NSString* _Nullable string);
std::string ToStdString(NSURL* _Nullable url);

// "" for a text that is not UTF-8, where nil may not stand: in a dictionary, a label or a message's argument.
NSString* ToNSString(const std::string& text);

}  // namespace cmn

NS_ASSUME_NONNULL_END
