#pragma once

#include "doctor/Machine.h"
#include "useragent/Accessibility.h"
#include "useragent/WindowList.h"

namespace ctl {

// Which browsers are on screen, and whether the agent could read them: looks as the agent does, again until
// the deadline while one cannot be read. For a session whose agent does not tell.
Browsers LookAtBrowsers(useragent::Accessibility& accessibility, useragent::WindowList& windows,
                        cmn::bus::Deadline deadline);

// Looks at the displays and buses of this process.
Browsers LookAtBrowsers(cmn::bus::Deadline deadline);

}  // namespace ctl
