#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "EventWriter.h"
#include "FileScanner.h"
#include "HostOptions.h"
#include "linux_bus/Lane.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "xpccommon/FinderExtensionObjCXPCServer.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace host {

// Runs the services and answers the commands. Used on the main thread; events come from anywhere.
class ServiceHost {
 public:
    // `end` is called on the main thread with the exit status. Throws std::runtime_error when a file that the
    // options name cannot be used.
    ServiceHost(const HostOptions& options, EventWriter& events, std::function<void(int status)> end);
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    void start();
    void execute(const std::string& command);

 private:
    void listenerChanged(const cmn::DBusListenerEvent& event);
    void getURL(const std::string& browser);
    void reload();

    EventWriter& events_;
    const char* const busName_;
    const std::function<void(int)> end_;
    const std::shared_ptr<cmn::LinuxDispatch> dispatch_;
    // Questions to the agent wait for its answer; on threads of their own they hold up nothing else.
    cmn::bus::Lane questions_;
    const std::shared_ptr<cmn::DBusXPCTransport> transport_;

    const std::string settingsFile_;
    const std::shared_ptr<FileScanner> scanner_;

    // The hosted services.
    std::shared_ptr<cmn::UserAgentXPCServer> userAgent_;
    std::shared_ptr<cmn::FinderExtensionObjCXPCServer> finderExtension_;
};

}  // namespace host
