#pragma once

namespace useragent {

// What the status item shows: the red one while full disk access is missing.
enum class StatusImage { menuIcon, menuIconRed };

// The state in words, UTF-8: read aloud, and readable for those who cannot tell the colours.
const char* DescribeImage(StatusImage image);

}  // namespace useragent
