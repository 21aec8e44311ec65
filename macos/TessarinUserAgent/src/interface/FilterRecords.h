#pragma once

#import <Foundation/Foundation.h>

#include "useragent/FileFilters.h"

namespace useragent {

// Records as the messages carry them: dictionaries of texts and numbers. What is neither counts with its
// description.
FilterRecord ToFilterRecord(NSDictionary* _Nullable dictionary);
FilterRecords ToFilterRecords(NSArray* _Nullable array);

}  // namespace useragent
