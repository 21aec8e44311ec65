#pragma once

#include <string_view>

namespace cmn {

// Sends one message of the priority "error" to the journal that listens at this socket. Does not wait: what
// the journal does not take at once is lost. A long text is cut. Any thread.
void SendToJournal(const char* socketPath, std::string_view identifier, std::string_view text) noexcept;

}  // namespace cmn
