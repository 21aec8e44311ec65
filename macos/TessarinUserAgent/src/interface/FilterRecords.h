#pragma once

#import <Foundation/Foundation.h>

#include "useragent/FileFilters.h"

namespace useragent {

// Records as the messages carry them: dictionaries of texts and numbers. What is neither counts with its
// description.
FilterRecord ToFilterRecord(NSDictionary* _Nullable dictionary);
// The records as the window's controller holds them.
NSArray<NSDictionary*>* _Nonnull ToNSArray(const FilterRecords& records);

}  // namespace useragent
