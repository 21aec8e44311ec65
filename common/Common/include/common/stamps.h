#pragma once

#include <string>

namespace cmn {

// A random UUID, 36 lower-case characters with hyphens.
std::string MakeUUID();
// Microseconds since 1970, in decimal.
std::string GetTimeStamp();
// The current UTC time as "month-day-year hours:minutes:seconds".
std::string GetCurrentDateTime();

}  // namespace cmn
