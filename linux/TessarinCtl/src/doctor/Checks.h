#pragma once

#include "doctor/Check.h"

namespace ctl {

// What is installed.
Finding CheckPackages(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckBusPolicy(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckPolkitActions(const Surroundings& surroundings, cmn::bus::Deadline deadline);

// Who is there.
Finding CheckServices(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckSessionBus(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckAgent(const Surroundings& surroundings, cmn::bus::Deadline deadline);

// What browsers are read through.
Finding CheckAccessibilityBus(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckAccessibilitySwitch(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckBrowsers(const Surroundings& surroundings, cmn::bus::Deadline deadline);

// Where the desktop shows the product.
Finding CheckTray(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckFileManager(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckUrlScheme(const Surroundings& surroundings, cmn::bus::Deadline deadline);

// The product's files, and the machine.
Finding CheckLog(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckSettings(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckClock(const Surroundings& surroundings, cmn::bus::Deadline deadline);
Finding CheckDisk(const Surroundings& surroundings, cmn::bus::Deadline deadline);

}  // namespace ctl
