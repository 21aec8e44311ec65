#include "ServiceProcess.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "BareQt.h"
#include "BareSdBus.h"
#include "Ours.h"

ServiceProcess::ServiceProcess(const char* kind, const std::string& busName)
    : process_({QCoreApplication::applicationFilePath().toStdString(), kind, (folder_ / "").string()}) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!QDBusConnection::sessionBus().interface()->isServiceRegistered(QString::fromStdString(busName))) {
        if (std::chrono::steady_clock::now() > deadline) {
            std::fprintf(stderr, "the service %s did not come\n", kind);
            std::exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool ServiceProcess::isOne(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 && arguments[0].starts_with("service-");
}

int ServiceProcess::run(const std::vector<std::string>& arguments) {
    if (arguments[0] == kOurs) {
        return ours::RunService(arguments[1]);
    }
    return arguments[0] == kBareQt ? bare_qt::RunService(kBareQtName)
                                   : bare_sd_bus::RunService(kBareSdBusName);
}
