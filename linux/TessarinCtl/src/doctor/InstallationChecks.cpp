#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/Checks.h"
#include "doctor/Installation.h"
#include "doctor/Machine.h"
#include "xpccommon/FinderExtensionProtocol.h"
#include "xpccommon/UserAgentProtocol.h"

namespace ctl {

namespace {

namespace bus = cmn::bus;
namespace fs = std::filesystem;

constexpr const char* kAccessibilityService = "/usr/share/dbus-1/services/org.a11y.Bus.service";
constexpr const char* kPolicyName = "com.tessarin.conf";
constexpr const char* kActionsFile = "/usr/share/polkit-1/actions/com.tessarin.policy";
constexpr const char* kPolkit = "org.freedesktop.PolicyKit1";

bool HasPlugin(const Machine& machine, std::string_view begin) {
    for (const fs::path& folder : machine.qtPlugins) {
        std::error_code error;
        for (fs::directory_iterator file(folder / "platforms", error), end; !error && file != end;
             file.increment(error)) {
            if (file->path().filename().native().starts_with(begin)) {
                return true;
            }
        }
    }
    return false;
}

struct Missing {
    std::vector<std::string> what;
    std::vector<std::string> debs;
    std::vector<std::string> rpms;

    void add(const char* thing, const char* deb, const char* rpm) {
        what.emplace_back(thing);
        debs.emplace_back(deb);
        rpms.emplace_back(rpm);
    }
};

// The values that elements of a file have, in any depth, for one attribute. Throws when it is no XML.
std::set<std::string> AttributesOf(const fs::path& file, const std::string& element,
                                   const std::string& attribute) {
    using boost::property_tree::ptree;
    std::ifstream in(file);
    ptree tree;
    boost::property_tree::xml_parser::read_xml(in, tree, boost::property_tree::xml_parser::no_comments);
    std::set<std::string> values;
    const auto collect = [&](const auto& self, const ptree& parent) -> void {
        for (const auto& [name, child] : parent) {
            const auto value = child.template get_optional<std::string>("<xmlattr>." + attribute);
            if (name == element && value) {
                values.insert(*value);
            }
            self(self, child);
        }
    };
    collect(collect, tree);
    return values;
}

}  // namespace

Finding CheckPackages(const Machine& machine, bus::Deadline /*deadline*/) {
    Missing missing;
    if (!machine.desktop.hasProgram("xdg-open")) {
        missing.add("xdg-open", "xdg-utils", "xdg-utils");
    }
    std::error_code error;
    if (!fs::exists(machine.system(kAccessibilityService), error)) {
        missing.add("the accessibility bus", "at-spi2-core", "at-spi2-core");
    }
    if (!machine.variable("WAYLAND_DISPLAY").empty() && !HasPlugin(machine, "libqwayland")) {
        missing.add("Qt's plug-in for Wayland", "qt6-wayland", "qt6-qtwayland");
    }
    if (!machine.variable("DISPLAY").empty() && !HasPlugin(machine, "libqxcb")) {
        missing.add("Qt's plug-in for X11", "libqt6gui6", "qt6-qtbase-gui");
    }
    if (missing.what.empty()) {
        return Good("Nothing is missing");
    }
    return {Verdict::wrong, fmt::format("Missing: {}", fmt::join(missing.what, ", ")),
            InstallCommand(machine, fmt::format("{}", fmt::join(missing.debs, " ")),
                           fmt::format("{}", fmt::join(missing.rpms, " ")))};
}

Finding CheckBusPolicy(const Machine& machine, bus::Deadline /*deadline*/) {
    const std::string install = ReinstallCommand(machine);
    for (const char* const folder : {"/etc/dbus-1/system.d", "/usr/share/dbus-1/system.d"}) {
        const fs::path file = machine.system(fs::path(folder) / kPolicyName);
        std::error_code error;
        if (!fs::exists(file, error)) {
            continue;
        }
        std::set<std::string> names;
        try {
            names = AttributesOf(file, "allow", "own");
        } catch (const std::exception& e) {
            return {Verdict::wrong, fmt::format("{} cannot be read by the bus: {}", Quoted(file), e.what()),
                    install};
        }
        for (const char* const service :
             {cmn::kUserAgentMachServiceName, cmn::kFinderExtensionXPCMachServiceName}) {
            if (!names.contains(service)) {
                return {Verdict::wrong, fmt::format("{} lets nobody offer {}", Quoted(file), service),
                        install};
            }
        }
        return Good(fmt::format("{} is in its place", Quoted(file)));
    }
    return {Verdict::wrong,
            fmt::format("{} is not installed: the bus lets neither services nor agents in", kPolicyName),
            install};
}

Finding CheckPolkitActions(const Machine& machine, bus::Deadline deadline) {
    const fs::path file = machine.system(kActionsFile);
    const std::string install = ReinstallCommand(machine);
    std::error_code error;
    if (!fs::exists(file, error)) {
        return {Verdict::wrong, fmt::format("{} is not installed: no right can be asked for", Quoted(file)),
                install};
    }
    try {
        const std::set<std::string> actions = AttributesOf(file, "action", "id");
        for (const char* const action : {"com.tessarin.installation", "system.privilege.admin"}) {
            if (!actions.contains(action)) {
                return {Verdict::wrong, fmt::format("{} has no action {}", Quoted(file), action), install};
            }
        }
    } catch (const std::exception& e) {
        return {Verdict::wrong, fmt::format("{} cannot be read by polkit: {}", Quoted(file), e.what()),
                install};
    }
    const auto connection = machine.buses->system(deadline);
    if (!connection) {
        return Good("The actions are installed; whether polkit runs cannot be told");
    }
    const auto startable = AskBus<std::vector<std::string>>(**connection, "ListActivatableNames", deadline);
    const auto owner = OwnerOf(**connection, kPolkit, deadline);
    const bool isThere =
        (owner && owner->has_value()) ||
        (startable && std::find(startable->begin(), startable->end(), kPolkit) != startable->end());
    return isThere ? Good("The actions are installed")
                   : Finding{Verdict::warning, "The actions are installed, and polkit is not",
                             InstallCommand(machine, "polkitd", "polkit")};
}

}  // namespace ctl
