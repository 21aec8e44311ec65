#pragma once

#import <Foundation/Foundation.h>

#include <stdexcept>
#include <string>

#import "common_mac/FoundationBridges.h"

namespace cmn {

// Runs what asks the platform, on behalf of portable code, which knows C++ exceptions only: an exception of
// the platform's becomes a std::runtime_error that begins with `what`.
template <typename Action>
auto WithStandardErrors(const char* what, const Action& action) -> decltype(action()) {
    @try {
        return action();
    } @catch (NSException* exception) {
        throw std::runtime_error(std::string(what) + " -- failed: " + ToStdString(exception.description));
    }
}

}  // namespace cmn
