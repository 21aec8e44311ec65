#include "LinuxAgentPlatform.h"

#include <thread>

#include "common/SystemUtils.h"
#include "linux_tessarinuseragent/AtspiAccessibility.h"
#include "linux_tessarinuseragent/LinuxWindowList.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"

namespace useragent {

LinuxAgentPlatform::LinuxAgentPlatform(int& argc, char** argv)
    : application_(argc, argv), stopper_(application_) {
    QCoreApplication::setApplicationName("TessarinUserAgent");
}

LinuxAgentPlatform::~LinuxAgentPlatform() {
    // Tasks that wait to run again, such as a reconnect, own what owns these objects.
    if (dispatch_) {
        dispatch_->stop();
    }
}

cmn::proto::TSettings LinuxAgentPlatform::settings() {
    return cmn::proto::GetSettings();
}

std::filesystem::path LinuxAgentPlatform::executablePath() {
    return cmn::GetCurrentExecutablePath();
}

std::optional<std::string> LinuxAgentPlatform::bundleShortVersion() {
    return cmn::GetBundleShortVersion();
}

std::shared_ptr<Accessibility> LinuxAgentPlatform::accessibility() {
    return atspi();
}

std::shared_ptr<WindowList> LinuxAgentPlatform::windowList() {
    return CreateLinuxWindowList(*atspi());
}

std::shared_ptr<cmn::Dispatch> LinuxAgentPlatform::dispatch() {
    return queues();
}

std::shared_ptr<cmn::XPCTransport> LinuxAgentPlatform::transport() {
    return std::make_shared<cmn::DBusXPCTransport>(queues());
}

std::function<void(std::chrono::nanoseconds)> LinuxAgentPlatform::sleeper() {
    return [](std::chrono::nanoseconds duration) { std::this_thread::sleep_for(duration); };
}

int LinuxAgentPlatform::runApplication() {
    return QCoreApplication::exec();
}

const std::shared_ptr<AtspiAccessibility>& LinuxAgentPlatform::atspi() {
    if (!accessibility_) {
        accessibility_ = std::make_shared<AtspiAccessibility>(queues(), SettingsOfThisSession());
    }
    return accessibility_;
}

const std::shared_ptr<cmn::LinuxDispatch>& LinuxAgentPlatform::queues() {
    if (!dispatch_) {
        dispatch_ = std::make_shared<cmn::LinuxDispatch>();
    }
    return dispatch_;
}

}  // namespace useragent
