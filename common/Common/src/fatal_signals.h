#pragma once

namespace cmn {

// Lets the calling thread sleep for about a millisecond. May be called in a signal handler.
void ShortPause() noexcept;

}  // namespace cmn
