#include <poll.h>

#include "fatal_signals.h"

namespace cmn {

void ShortPause() noexcept {
    poll(nullptr, 0, 1);
}

}  // namespace cmn
