#import "interface/FilterRecords.h"

#include <cstring>
#include <map>
#include <string>
#include <variant>

#import "common_mac/FoundationBridges.h"

namespace useragent {

namespace {

FilterValue ToFilterValue(NSNumber* number) {
    // Truth values are numbers, too, of a type of their own.
    if (CFGetTypeID((__bridge CFTypeRef)number) == CFBooleanGetTypeID()) {
        return number.boolValue != NO;
    }
    // The C type that the number was made of.
    if (std::strcmp(number.objCType, @encode(double)) == 0 ||
        std::strcmp(number.objCType, @encode(float)) == 0) {
        return number.doubleValue;
    }
    return static_cast<std::int64_t>(number.longLongValue);
}

id ToObject(const std::string& text) {
    return cmn::ToNSString(text);
}

id ToObject(std::int64_t number) {
    return [NSNumber numberWithLongLong:number];
}

id ToObject(double number) {
    return [NSNumber numberWithDouble:number];
}

id ToObject(bool truth) {
    return [NSNumber numberWithBool:truth ? YES : NO];
}

FilterValue ToFilterValue(id value) {
    if ([value isKindOfClass:[NSNumber class]]) {
        return ToFilterValue(static_cast<NSNumber*>(value));
    }
    return cmn::ToStdString([value description]);
}

}  // namespace

FilterRecord ToFilterRecord(NSDictionary* dictionary) {
    std::map<std::string, FilterValue> values;
    for (id key in dictionary) {
        values.emplace(cmn::ToStdString([key description]), ToFilterValue(dictionary[key]));
    }
    return FilterRecord(values);
}

NSArray<NSDictionary*>* ToNSArray(const FilterRecords& records) {
    NSMutableArray<NSDictionary*>* const array = [NSMutableArray arrayWithCapacity:records.size()];
    for (const FilterRecord& record : records) {
        NSMutableDictionary<NSString*, id>* const dictionary = [NSMutableDictionary dictionary];
        for (const auto& [key, value] : record.values()) {
            dictionary[cmn::ToNSString(key)] =
                std::visit([](const auto& one) { return ToObject(one); }, value);
        }
        [array addObject:dictionary];
    }
    return array;
}

}  // namespace useragent
