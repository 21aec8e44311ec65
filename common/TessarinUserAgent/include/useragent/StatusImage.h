#pragma once

#include <optional>

namespace useragent {

// What the status item shows, as a picture and in words. The red ones are the same picture: full disk access
// is missing, or the service that knows of it does not answer.
enum class StatusImage { menuIcon, menuIconRed, menuIconRedUnanswered };

// After the service was asked for full disk access; nothing: it gave no answer in time.
StatusImage ImageOf(std::optional<bool> fullDiskAccess);
bool IsRed(StatusImage image);

// The state in words, UTF-8: read aloud, and readable for those who cannot tell the colours.
const char* DescribeImage(StatusImage image);
// Whether the service answers, for a line of the menu, which has items for the permissions.
const char* DescribeService(StatusImage image);

// What that line shows until the service was asked.
inline constexpr const char* kServiceTitle = "Protection service";

}  // namespace useragent
