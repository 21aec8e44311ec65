#import "interface/FilterRecords.h"

#include <cstring>
#include <map>
#include <string>
#include <utility>

#import "common_mac/FoundationBridges.h"

namespace useragent {

namespace {

// Numbers know the C type they were made of; `c` is that of a truth value.
FilterValue ToFilterValue(NSNumber* number) {
    const char* const type = number.objCType;
    if (std::strcmp(type, @encode(BOOL)) == 0 || std::strcmp(type, @encode(char)) == 0) {
        return number.boolValue != NO;
    }
    if (std::strcmp(type, @encode(double)) == 0 || std::strcmp(type, @encode(float)) == 0) {
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
