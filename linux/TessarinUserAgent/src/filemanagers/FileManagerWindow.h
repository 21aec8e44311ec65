#pragma once

#include <QDialog>
#include <memory>
#include <optional>

#include "filemanagers/FileManagerEntries.h"

class QComboBox;
class QLabel;
class QPushButton;

namespace useragent {

// Where the user adds the product's entry to the context menu of a file manager, or takes it out. Deletes
// itself when it is closed.
class FileManagerWindow : public QDialog {
    Q_OBJECT

 public:
    FileManagerWindow(std::shared_ptr<const FileManagerEntries> entries, const DesktopSession& session);

 protected:
    void changeEvent(QEvent* event) override;

 private:
    void addFileManagers(const DesktopSession& session, std::optional<FileManager> ofDesktop);
    FileManager selected() const;
    void refresh();
    void installOrRemove();
    void showMessage(const QString& text);
    void makeRoom();  // texts that became longer are not cut off

    const std::shared_ptr<const FileManagerEntries> entries_;
    QComboBox* fileManagerBox_ = nullptr;
    QLabel* statusLabel_ = nullptr;
    QLabel* placeLabel_ = nullptr;
    QLabel* messageLabel_ = nullptr;
    QPushButton* installButton_ = nullptr;
};

}  // namespace useragent
