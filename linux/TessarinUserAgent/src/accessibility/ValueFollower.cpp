#include "accessibility/ValueFollower.h"

#include <utility>

namespace useragent {

bool ValueFollower::changed() {
    return !std::exchange(reading_, true);
}

bool ValueFollower::read(const std::string& text) {
    reading_ = false;
    missing_ = false;
    retried_ = false;
    if (told_ == text) {
        return false;
    }
    told_ = text;
    return true;
}

void ValueFollower::unanswered() {
    reading_ = false;
    missing_ = true;
}

ValueFollower::Retry ValueFollower::recovered() {
    if (!missing_ || reading_) {
        return Retry::none;
    }
    return std::exchange(retried_, true) ? Retry::later : Retry::now;
}

}  // namespace useragent
