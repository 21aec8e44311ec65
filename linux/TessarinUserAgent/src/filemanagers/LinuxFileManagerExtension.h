#pragma once

#include <QPointer>
#include <filesystem>
#include <memory>

#include "filemanagers/FileManagerEntries.h"
#include "useragent/AppMenu.h"

class QWidget;

namespace useragent {

class LinuxFileManagerExtension : public FileManagerExtension {
 public:
    // `templates` is the folder packaging/file-managers or its installed copy.
    explicit LinuxFileManagerExtension(const std::filesystem::path& templates,
                                       DesktopSession session = CurrentDesktopSession());
    ~LinuxFileManagerExtension() override;

    // Whether the file manager of this desktop has the entry.
    bool isExtensionEnabled() override;
    bool canBeEnabled() override;
    // Shows the one window for it, or brings it to the front. Needs a QApplication.
    void showExtensionManagementInterface() override;

 private:
    const DesktopSession session_;
    const std::shared_ptr<const FileManagerEntries> entries_;
    QPointer<QWidget> window_;
};

}  // namespace useragent
