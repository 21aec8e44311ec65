#include "support/PrivateBus.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace fake {

PrivateBus::PrivateBus(const WithService& service, Names names) {
    std::string services;
    if (!service.name.empty()) {
        std::ofstream(folder_ / (service.name + ".service"))
            << "[D-BUS Service]\nName=" << service.name << "\nExec=/usr/bin/touch "
            << (folder_ / "started").string() << "\n";
        services = "<servicedir>" + folder_.path().string() + "</servicedir>";
    }
    std::ofstream(folder_ / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><listen>"
        << address() << "</listen>" << services
        << "<auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
           "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow user=\"*\"/><"
        << (names == Names::free ? "allow" : "deny") << " own=\"*\"/></policy></busconfig>\n";
    start();
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
    daemon_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile", "--print-address",
                                 "--config-file=" + (folder_ / "bus.conf").string()});
    if (!daemon_->readLine()) {
        throw std::runtime_error("dbus-daemon -- failed: " + daemon_->errors());
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
