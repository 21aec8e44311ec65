#pragma once

#include "Command.h"

namespace ctl {

// What is wrong here, and what mends it.
Command DoctorCommand();

// An archive for support: what the other commands say, settings and logs.
Command BundleCommand();

}  // namespace ctl
