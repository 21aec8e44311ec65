#pragma once

#include <systemd/sd-bus.h>

#include <mutex>

namespace cmn::bus {

// The library's objects of one connection. It keeps no threads apart: whatever touches the bus, a reference
// of a message included, holds this mutex. Only the contents of a message are its user's alone. Recursive:
// messages are let go of while it is held.
struct Wire {
    std::recursive_mutex mutex;
    sd_bus* bus = nullptr;  // null when there is no connection
};

}  // namespace cmn::bus
