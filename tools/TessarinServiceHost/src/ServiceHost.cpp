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

constexpr std::string_view kGetURL = "getURL";

bool CanListFolder(const std::string& folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return !error;
}

}  // namespace

ServiceHost::ServiceHost(const HostOptions& options, EventWriter& events, HostPlatform& platform)
    : events_(events),
      platform_(platform),
      settingsFile_(options.settingsFile),
      scanner_(std::make_shared<FileScanner>(options.scanner)) {
    platform_.connect(options.bus, [this](const ListenerEvent& event) { listenerChanged(event); });
    UseSettings(settingsFile_);
    finderExtension_ = cmn::FinderExtensionObjCXPCServer::sharedInstance(platform_.transport());
    finderExtension_->setScannerService(scanner_);
    if (!options.fullDiskAccessFolder.empty()) {
        finderExtension_->setFullDiskAccessProbe(
            [folder = options.fullDiskAccessFolder] { return CanListFolder(folder); });
    }
}

ServiceHost::~ServiceHost() {
    scanner_->stop();
    finderExtension_->stop();
    platform_.stop();
    userAgent_.reset();
}

void ServiceHost::start() {
    userAgent_ = cmn::CreateUserAgentXPCServer(
        [this](const std::string& url, const std::string& browser, std::int32_t pid, const auto& peer) {
            events_.write("url", ReportFields(url, browser, pid, peer));
        },
        platform_.dispatch(), platform_.transport());
    finderExtension_->start();
    platform_.started();
}

void ServiceHost::listenerChanged(const ListenerEvent& event) {
    const std::string place = platform_.place();
    if (event.state == ListenerState::listening) {
        events_.write("ready", {{"service", event.service}, {"bus", place}, {"pid", cmn::GetPID()}});
        return;
    }
    const bool isLost = event.state == ListenerState::lost;
    std::fprintf(stderr, "TessarinServiceHost: %s as %s on the %s bus: %s\n",
                 isLost ? "can no longer listen" : "cannot listen", event.service.c_str(), place.c_str(),
                 event.reason.c_str());
    if (isLost) {
        events_.write("lost", {{"service", event.service}});
    } else {
        platform_.dispatch()->asyncMain([this] { platform_.end(1); });
    }
}

void ServiceHost::execute(const std::string& command) {
    if (command == "quit") {
        platform_.end(0);
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
    platform_.ask([this, server = userAgent_, browser] {
        const std::string url = server->getURL(browser);
        events_.write("getURL", {{"browser", browser}, {"url", url}});
    });
}

}  // namespace host
