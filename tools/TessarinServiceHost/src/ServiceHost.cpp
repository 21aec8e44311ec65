#include "ServiceHost.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <utility>

#include "HostSettings.h"
#include "common/SystemUtils.h"

namespace host {

namespace {

// So many questions can wait for the agent at the same time.
constexpr std::size_t kQuestionThreads = 8;

// So many clients can wait for a scan at the same time without holding up the others.
constexpr unsigned kRequestThreads = 32;

constexpr std::string_view kGetURL = "getURL";

bool CanListFolder(const std::string& folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return !error;
}

}  // namespace

ServiceHost::ServiceHost(const HostOptions& options, EventWriter& events, std::function<void(int)> end)
    : events_(events),
      busName_(options.bus == cmn::DBusBus::system ? "system" : "session"),
      end_(std::move(end)),
      dispatch_(std::make_shared<cmn::LinuxDispatch>(kRequestThreads)),
      questions_(*dispatch_->loop(), kQuestionThreads),
      transport_(std::make_shared<cmn::DBusXPCTransport>(
          dispatch_,
          cmn::DBusXPCOptions{.listenerBus = options.bus,
                              .onListenerEvent = [this](const auto& event) { listenerChanged(event); }})),
      settingsFile_(options.settingsFile),
      scanner_(std::make_shared<FileScanner>(options.scanner)) {
    UseSettings(settingsFile_);
    finderExtension_ = cmn::FinderExtensionObjCXPCServer::sharedInstance(transport_);
    finderExtension_->setScannerService(scanner_);
    if (!options.fullDiskAccessFolder.empty()) {
        finderExtension_->setFullDiskAccessProbe(
            [folder = options.fullDiskAccessFolder] { return CanListFolder(folder); });
    }
}

ServiceHost::~ServiceHost() {
    scanner_->stop();
    finderExtension_->stop();
    transport_->stop();  // while the loop still does what that asks of it
    // Wakes the questions that wait, then lets every task end before what it uses goes.
    dispatch_->stop();
    questions_.stop();
    userAgent_.reset();
}

void ServiceHost::start() {
    userAgent_ = cmn::CreateUserAgentXPCServer(
        [this](const std::string& url, const std::string& browser, std::int32_t pid, const auto& peer) {
            events_.write("url", ReportFields(url, browser, pid, peer));
        },
        dispatch_, transport_);
    finderExtension_->start();
}

void ServiceHost::listenerChanged(const cmn::DBusListenerEvent& event) {
    if (event.state == cmn::DBusListenerState::listening) {
        events_.write("ready",
                      {{"service", event.machServiceName}, {"bus", busName_}, {"pid", cmn::GetPID()}});
        return;
    }
    const bool isLost = event.state == cmn::DBusListenerState::lost;
    std::fprintf(stderr, "TessarinServiceHost: %s as %s on the %s bus: %s\n",
                 isLost ? "can no longer listen" : "cannot listen", event.machServiceName.c_str(), busName_,
                 event.reason.c_str());
    if (isLost) {
        // The listener claims its name again, for as long as it takes.
        events_.write("lost", {{"service", event.machServiceName}});
    } else {
        dispatch_->asyncMain([this] { end_(1); });
    }
}

void ServiceHost::execute(const std::string& command) {
    if (command == "quit") {
        end_(0);
    } else if (command == "stop") {
        userAgent_->stop();
        finderExtension_->stop();
        events_.write("stopped");
    } else if (command == "reload") {
        reload();
    } else if (command.starts_with(kGetURL) &&
               (command.size() == kGetURL.size() || command[kGetURL.size()] == ' ')) {
        const std::size_t text = command.find_first_not_of(' ', kGetURL.size());
        getURL(text != std::string::npos ? command.substr(text) : std::string());
    } else {
        events_.write("error", {{"message", "unknown command: " + command}});
    }
}

void ServiceHost::reload() {
    try {
        UseSettings(settingsFile_);
        events_.write("reloaded");
    } catch (const std::exception& e) {
        events_.write("error", {{"message", std::string("the settings stay as they are: ") + e.what()}});
    }
}

void ServiceHost::getURL(const std::string& browser) {
    questions_.post([this, server = userAgent_, browser] {
        const std::string url = server->getURL(browser);
        events_.write("getURL", {{"browser", browser}, {"url", url}});
    });
}

}  // namespace host
