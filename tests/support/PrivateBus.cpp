#include "support/PrivateBus.h"

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace fake {

namespace {

// As the system bus has them: what is allowed beyond is the services' own policy.
constexpr const char* kSystemRules = R"(
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus.Properties"/>
  </policy>
)";

}  // namespace

PrivateBus::PrivateBus(const WithService& service, Names names) {
    std::string services;
    if (!service.name.empty()) {
        std::ofstream(folder_ / (service.name + ".service"))
            << "[D-BUS Service]\nName=" << service.name << "\nExec=/usr/bin/touch "
            << (folder_ / "started").string() << "\n";
        services = "<servicedir>" + folder_.path().string() + "</servicedir>";
    }
    const std::string own = names == Names::free ? "allow" : "deny";
    configure("session", services +
                             "<policy context=\"default\"><allow send_destination=\"*\" "
                             "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow user=\"*\"/><" +
                             own + " own=\"*\"/></policy>");
    start();
}

PrivateBus::PrivateBus(const OfSystem& system) {
    configure("system", kSystemRules + system.otherRules + "<include>" + system.policy.string() +
                            "</include>" + system.administratorsRules);
    openToOthers();
    start();
}

void PrivateBus::configure(const std::string& type, const std::string& rules) const {
    std::ofstream(folder_ / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>"
        << type << "</type><listen>" << address() << "</listen><auth>EXTERNAL</auth>" << rules
        << "</busconfig>\n";
}

PrivateBus::~PrivateBus() {
    kill();
}

std::string PrivateBus::socket() const {
    return folder_ / "bus";
}

void PrivateBus::openToOthers() const {
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
}

std::string PrivateBus::address() const {
    return "unix:path=" + socket();
}

void PrivateBus::start() {
    startWith({});
}

void PrivateBus::startAs(unsigned user) {
    const std::string id = std::to_string(user);
    if (::chown(folder_.path().c_str(), user, user) != 0) {
        throw std::runtime_error("chown -- failed");
    }
    startWith({"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"});
}

void PrivateBus::startWith(const std::vector<std::string>& prefix) {
    // It writes a line for each refusal: into a file, since a pipe that nobody reads would stop it one day.
    const std::string errors = folder_ / "errors";
    std::vector<std::string> command{"sh", "-c", R"(exec "$@" 2>>"$0")", errors};
    command.insert(command.end(), prefix.begin(), prefix.end());
    command.insert(command.end(), {"dbus-daemon", "--nofork", "--nopidfile", "--print-address",
                                   "--config-file=" + (folder_ / "bus.conf").string()});
    daemon_ = std::make_unique<ChildProcess>(command);
    if (!daemon_->readLine()) {
        std::string reason;
        for (const std::string& line : ReadLines(errors)) {
            reason += "\n" + line;
        }
        throw std::runtime_error("dbus-daemon -- failed: " + reason);
    }
}

void PrivateBus::kill() {
    daemon_.reset();
    std::error_code ignored;
    std::filesystem::remove(socket(), ignored);
}

bool PrivateBus::serviceWasStarted() const {
    return std::filesystem::exists(folder_ / "started");
}

void PrivateBus::freeze() const {
    daemon_->signal(SIGSTOP);
}

void PrivateBus::thaw() const {
    daemon_->signal(SIGCONT);
}

}  // namespace fake
