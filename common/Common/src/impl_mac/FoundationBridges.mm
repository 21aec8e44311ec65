#import "common_mac/FoundationBridges.h"

#include <stdexcept>

@implementation NSString (CppStringUtils)

+ (nullable instancetype)stringWithStdString:(const std::string&)string {
    return [self stringWithUTF8String:string.c_str()];
}

- (std::string)stdString {
    // Null for text that cannot be UTF-8, such as half a surrogate pair.
    const char* const text = self.UTF8String;
    return text != nullptr ? std::string(text) : std::string();
}

@end

@implementation NSURL (CppURLUtils)

+ (nullable instancetype)URLWithStdString:(const std::string&)string {
    NSString* const text = [NSString stringWithStdString:string];
    return text != nil ? [self URLWithString:text] : nil;
}

+ (nullable instancetype)fileURLWithStdString:(const std::string&)path {
    NSString* const text = [NSString stringWithStdString:path];
    return text != nil ? [self fileURLWithPath:text] : nil;
}

- (std::string)stdString {
    return cmn::ToStdString(self.absoluteString);
}

@end

@implementation NSArray (CppVectorUtils)

+ (NSMutableArray<NSString*>*)arrayWithStringVector:(const std::vector<std::string>&)strings {
    NSMutableArray<NSString*>* const array = [NSMutableArray arrayWithCapacity:strings.size()];
    for (const std::string& string : strings) {
        NSString* const text = [NSString stringWithStdString:string];
        if (text == nil) {
            // Left out, it would move the others to other places.
            throw std::runtime_error("A text of a list is not UTF-8");
        }
        [array addObject:text];
    }
    return array;
}

- (std::vector<std::string>)stdStringVector {
    std::vector<std::string> strings;
    strings.reserve(self.count);
    for (id element in self) {
        strings.push_back([[element description] stdString]);
    }
    return strings;
}

@end

namespace cmn {

std::string ToStdString(NSString* string) {
    return string != nil ? [string stdString] : std::string();
}

std::string ToStdString(NSURL* url) {
    return url != nil ? [url stdString] : std::string();
}

NSString* ToNSString(const std::string& text) {
    NSString* const string = [NSString stringWithStdString:text];
    return string != nil ? string : @"";
}

}  // namespace cmn
