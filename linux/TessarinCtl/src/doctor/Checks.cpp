#include "doctor/Checks.h"

namespace ctl {

const std::vector<Check>& Checks() {
    static const std::vector<Check> checks{
        {"packages", "Programs that the product needs", CheckPackages},
        {"bus-policy", "Policy of the system bus", CheckBusPolicy},
        {"services", "Services of the daemon", CheckServices},
        {"session-bus", "Message bus of the session", CheckSessionBus},
        {"agent", "Agent of this session", CheckAgent},
        {"accessibility-bus", "Accessibility bus", CheckAccessibilityBus},
        {"accessibility-switch", "Accessibility switched on", CheckAccessibilitySwitch},
        {"browsers", "Browsers can be read", CheckBrowsers},
        {"tray", "Place for the status item", CheckTray},
        {"file-manager", "Entry in the file manager", CheckFileManager},
        {"url-scheme", "Handler of the product's URLs", CheckUrlScheme},
        {"polkit-actions", "Actions that an administrator allows", CheckPolkitActions},
        {"log", "Log can be written", CheckLog},
        {"settings", "Settings are valid", CheckSettings},
        {"clock", "Clock of the machine", CheckClock},
        {"disk", "Room for the log", CheckDisk},
    };
    return checks;
}

}  // namespace ctl
