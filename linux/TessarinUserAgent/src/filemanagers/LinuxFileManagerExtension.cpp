#include "filemanagers/LinuxFileManagerExtension.h"

#include <utility>

#include "common/log.h"
#include "filemanagers/FileManagerWindow.h"

namespace useragent {

LinuxFileManagerExtension::LinuxFileManagerExtension(const std::filesystem::path& templates,
                                                     DesktopSession session)
    : session_(std::move(session)),
      entries_(std::make_shared<FileManagerEntries>(templates, session_.folders)) {}

LinuxFileManagerExtension::~LinuxFileManagerExtension() {
    delete window_.data();
}

bool LinuxFileManagerExtension::isExtensionEnabled() {
    const std::optional<FileManager> manager = FileManagerOf(session_);
    return manager && entries_->isInstalled(*manager);
}

bool LinuxFileManagerExtension::canBeEnabled() {
    return FileManagerOf(session_).has_value();
}

void LinuxFileManagerExtension::showExtensionManagementInterface() {
    try {
        if (!window_) {
            window_ = new FileManagerWindow(entries_, session_);
        }
        window_->setWindowState(window_->windowState() & ~Qt::WindowMinimized);
        window_->show();
        window_->raise();
        window_->activateWindow();
    } catch (const std::exception& error) {
        TLOG_WARN("The window for the file manager's menu could not be shown: {}", error.what());
    }
}

}  // namespace useragent
