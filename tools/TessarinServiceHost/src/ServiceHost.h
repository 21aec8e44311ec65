#pragma once

#include <memory>
#include <string>

#include "EventWriter.h"
#include "FileScanner.h"
#include "HostOptions.h"
#include "HostPlatform.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace host {

// Runs the services and answers the commands. Used on the main thread; events come from anywhere.
class ServiceHost {
 public:
    // All three must outlive this object. Throws std::runtime_error when a file that the options name cannot
    // be used, and what HostPlatform::connect throws.
    ServiceHost(const HostOptions& options, EventWriter& events, HostPlatform& platform);
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    void start();
    void execute(const std::string& command);

 private:
    void listenerChanged(const ListenerEvent& event);
    void getURL(const std::string& browser);
    void reload();

    EventWriter& events_;
    HostPlatform& platform_;
    const std::string settingsFile_;
    const std::shared_ptr<FileScanner> scanner_;

    // The hosted services.
    std::shared_ptr<cmn::UserAgentXPCServer> userAgent_;
    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> finderExtension_;
};

}  // namespace host
