#include "useragent/StatusImage.h"

namespace useragent {

const char* DescribeImage(StatusImage image) {
    return image == StatusImage::menuIconRed ? "Tessarin: full disk access is missing"
                                             : "Tessarin User Agent";
}

}  // namespace useragent
