#import "interface/FilterRecords.h"

#include <cstring>
#include <map>
#include <string>
#include <utility>

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
    return FilterRecord(std::move(values));
}

FilterRecords ToFilterRecords(NSArray* array) {
    FilterRecords records;
    for (id element in array) {
        records.push_back(ToFilterRecord(
            [element isKindOfClass:[NSDictionary class]] ? static_cast<NSDictionary*>(element) : nil));
    }
    return records;
}

}  // namespace useragent
