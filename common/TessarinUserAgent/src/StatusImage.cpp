#include "useragent/StatusImage.h"

namespace useragent {

StatusImage ImageOf(std::optional<bool> fullDiskAccess) {
    if (!fullDiskAccess) {
        return StatusImage::menuIconRedUnanswered;
    }
    return *fullDiskAccess ? StatusImage::menuIcon : StatusImage::menuIconRed;
}

bool IsRed(StatusImage image) {
    return image != StatusImage::menuIcon;
}

const char* DescribeImage(StatusImage image) {
    switch (image) {
        case StatusImage::menuIconRed:
            return "Tessarin: full disk access is missing";
        case StatusImage::menuIconRedUnanswered:
            return "Tessarin: the protection service does not answer";
        default:
            return "Tessarin User Agent";
    }
}

const char* DescribeService(StatusImage image) {
    return image == StatusImage::menuIconRedUnanswered ? "Protection service: does not answer"
                                                       : "Protection service: On";
}

}  // namespace useragent
