#pragma once

#include "doctor/Check.h"

namespace ctl {

// What is installed.
Finding CheckPackages(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckBusPolicy(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckPolkitActions(const Machine& machine, cmn::bus::Deadline deadline);

// Who is there.
Finding CheckServices(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckSessionBus(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckAgent(const Machine& machine, cmn::bus::Deadline deadline);

// What browsers are read through.
Finding CheckAccessibilityBus(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckAccessibilitySwitch(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckBrowsers(const Machine& machine, cmn::bus::Deadline deadline);

// Where the desktop shows the product.
Finding CheckTray(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckFileManager(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckUrlScheme(const Machine& machine, cmn::bus::Deadline deadline);

// The product's files, and the machine.
Finding CheckLog(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckSettings(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckClock(const Machine& machine, cmn::bus::Deadline deadline);
Finding CheckDisk(const Machine& machine, cmn::bus::Deadline deadline);

}  // namespace ctl
