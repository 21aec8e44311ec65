#include "Ours.h"

#include <QCoreApplication>
#include <future>
#include <map>
#include <optional>
#include <vector>

#include "Records.h"
#include "common/proto_settings.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/HurriedDispatch.h"
#include "support/HurriedTransport.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/FinderExtensionXPCClient.h"

namespace ours {

namespace {

constexpr double kPatience = 1000;  // an answer that took longer than 100 ms would not count
constexpr auto kVersionPatience = std::chrono::seconds(20);

// The path that is asked for is the number of records. They are made for each question, as a scanner's are:
// copies of those that it has.
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
    const std::map<int, std::vector<cmn::ScanRecord>> records_ = MakeAllRecords();
};

}  // namespace

Surroundings::Surroundings()
    : dispatch(std::make_shared<cmn::LinuxDispatch>()),
      transport(std::make_shared<fake::HurriedTransport>(std::make_shared<cmn::DBusXPCTransport>(dispatch),
                                                         kPatience)) {}

Surroundings::~Surroundings() {
    dispatch->stop();
}

Client::Client(const Surroundings& surroundings)
    : client_(std::make_shared<cmn::FinderExtensionXPCClient>(
          std::make_shared<fake::HurriedDispatch>(surroundings.dispatch, 1, kPatience),
          surroundings.transport)) {
    client_->connect();
}

bool Client::version() {
    // Shared with the reply, which may come after this has given up.
    const auto answer = std::make_shared<std::promise<bool>>();
    client_->connection()
        ->remoteObjectProxy([answer](const cmn::RemoteError&) { answer->set_value(false); })
        ->version([answer](const std::string& text) { answer->set_value(text == "1.0"); });
    std::future<bool> future = answer->get_future();
    return future.wait_for(kVersionPatience) == std::future_status::ready && future.get();
}

bool Client::ask(int count) {
    return client_->getFileFilters(std::to_string(count)).size() == static_cast<std::size_t>(count);
}

int RunService(const std::string& installPath) {
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
    GiveFreeMemoryBack();
    const auto server = std::make_shared<cmn::FinderExtensionObjCXPCServer>(transport);
    server->setScannerService(scanner);
    server->start();
    return QCoreApplication::exec();
}

}  // namespace ours
