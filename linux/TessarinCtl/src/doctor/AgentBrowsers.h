#pragma once

#include "doctor/Machine.h"

namespace ctl {

// What the agent of the session says of browsers; nothing when there is none, or it does not tell in time.
Browsers BrowsersOfAgent(Buses& buses, cmn::bus::Deadline deadline);

}  // namespace ctl
