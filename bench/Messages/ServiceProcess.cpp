#include "ServiceProcess.h"

#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <thread>

#include "Records.h"
#include "common/proto_settings.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"

namespace {

// The path that is asked for is the number of records.
class CountingScanner : public cmn::IFinderExtensionOperations {
 public:
    bool CheckEncryptionStatus(const std::string& /*path*/,
                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        return false;
    }
    std::vector<cmn::ScanRecord> GetScanResult(const std::string& path,
                                               const std::optional<cmn::XPCPeer>& /*asker*/) override {
        return records_.at(std::stoi(path));
    }
    std::vector<std::string> GetAllowedExtensions() override { return {}; }
    int Decrypt(const std::string& /*path*/, const std::optional<cmn::XPCPeer>& /*asker*/) override {
        return 0;
    }

 private:
    const std::map<int, std::vector<cmn::ScanRecord>> records_{
        {1, MakeRecords(1)}, {100, MakeRecords(100)}, {10'000, MakeRecords(10'000)}};
};

// The same answers with nothing between the bus library and the service.
class BareService : public QDBusVirtualObject {
 public:
    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        connection.send(message.member() == QLatin1String("Version")
                            ? message.createReply(QStringLiteral("1.0"))
                            : message.createReply(QVariant::fromValue(
                                  records_.at(message.arguments()[0].toString().toInt()))));
        return true;
    }

 private:
    const std::map<int, QtRecords> records_{
        {1, ToQt(MakeRecords(1))}, {100, ToQt(MakeRecords(100))}, {10'000, ToQt(MakeRecords(10'000))}};
};

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

}  // namespace

ServiceProcess::ServiceProcess(const char* kind, const std::string& busName) {
    const std::string program = QCoreApplication::applicationFilePath().toStdString();
    std::string argument = kind;
    std::string folder = (folder_ / "").string();
    char* const arguments[] = {const_cast<char*>(program.c_str()), argument.data(), folder.data(), nullptr};
    if (::posix_spawn(&pid_, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
        Fail("the service could not be started");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!QDBusConnection::sessionBus().interface()->isServiceRegistered(QString::fromStdString(busName))) {
        if (std::chrono::steady_clock::now() > deadline) {
            Fail("the service did not come");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

ServiceProcess::~ServiceProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
}

int ServiceProcess::runOurs(const std::string& installPath) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    cmn::proto::TSettings settings;
    settings.LogLevel = "Warn";
    settings.Products.resize(1);
    settings.Products[0].InstallPath = installPath;
    settings.Products[0].NativeName = cmn::proto::GetCurrentProductNativeName();
    cmn::proto::SetSettings(settings);
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    const auto transport = std::make_shared<cmn::DBusXPCTransport>(
        dispatch, cmn::DBusXPCOptions{.listenerBus = cmn::DBusBus::session});
    const auto scanner = std::make_shared<CountingScanner>();
    const auto server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport);
    server->setScannerService(scanner);
    server->start();
    return QCoreApplication::exec();
}

int ServiceProcess::runBare() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    BareService service;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerVirtualObject(QString::fromLatin1(kBarePath), &service) ||
        !bus.registerService(QString::fromLatin1(kBareName))) {
        Fail("the bare service could not be offered");
    }
    return QCoreApplication::exec();
}
