#include "ScanBounds.h"

#include <utility>

namespace host {

ScanBounds::ScanBounds(const ScanLimits& limits, Now now, std::stop_token stop)
    : searchedAgain_(limits.searchedAgain),
      now_(std::move(now)),
      stop_(std::move(stop)),
      end_(now_() + limits.time) {}

bool ScanBounds::allow(std::uint64_t searchedAgain) {
    if (stop_.stop_requested()) {
        reason_ = "The host ends";
    } else if (now_() >= end_) {
        reason_ = "It took too long";
    } else if (searchedAgain > searchedAgain_) {
        reason_ = "A pattern searched the text again and again";
    } else {
        return true;
    }
    return false;
}

}  // namespace host
