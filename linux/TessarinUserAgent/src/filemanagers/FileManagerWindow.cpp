#include "filemanagers/FileManagerWindow.h"

#include <QAccessible>
#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

namespace useragent {
namespace {

QString Name(FileManager manager) {
    return QString(FactsOf(manager).name);
}

constexpr int kWidth = 380;

QLabel* PlainLabel(const char* name, QWidget* parent, const QString& text = {}) {
    auto* label = new QLabel(parent);
    label->setObjectName(QLatin1String(name));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setText(text);
    return label;
}

}  // namespace

FileManagerWindow::FileManagerWindow(std::shared_ptr<const FileManagerEntries> entries,
                                     const DesktopSession& session)
    : entries_(std::move(entries)) {
    setObjectName(QStringLiteral("fileManagerWindow"));
    setWindowTitle(QStringLiteral("Tessarin in the File Manager"));
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_QuitOnClose, false);

    const std::optional<FileManager> ofDesktop = FileManagerOf(session);
    auto* desktopLabel =
        PlainLabel("desktopLabel", this,
                   ofDesktop ? QStringLiteral("The file manager of this desktop is %1.").arg(Name(*ofDesktop))
                             : QStringLiteral("The file manager of this desktop is not known."));
    auto* explanationLabel =
        PlainLabel("explanationLabel", this,
                   QStringLiteral("The entry \"Tessarin Properties\" shows what Tessarin found in the "
                                  "selected files. It is added for you alone, not for other users."));
    fileManagerBox_ = new QComboBox(this);
    fileManagerBox_->setObjectName(QStringLiteral("fileManagerBox"));
    auto* boxLabel = PlainLabel("fileManagerBoxLabel", this, QStringLiteral("&File manager:"));
    boxLabel->setBuddy(fileManagerBox_);
    boxLabel->setWordWrap(false);
    statusLabel_ = PlainLabel("statusLabel", this);
    placeLabel_ = PlainLabel("placeLabel", this);
    messageLabel_ = PlainLabel("messageLabel", this);
    messageLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    messageLabel_->setFocusPolicy(Qt::StrongFocus);
    messageLabel_->setAccessibleName(QStringLiteral("Message"));
    messageLabel_->hide();
    installButton_ = new QPushButton(this);
    installButton_->setObjectName(QStringLiteral("installButton"));
    auto* closeButton = new QPushButton(QStringLiteral("&Close"), this);
    closeButton->setObjectName(QStringLiteral("closeButton"));
    closeButton->setAutoDefault(false);

    auto* choice = new QHBoxLayout;
    choice->addWidget(boxLabel);
    choice->addWidget(fileManagerBox_, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(installButton_);
    buttons->addWidget(closeButton);
    auto* column = new QVBoxLayout(this);
    for (QLabel* label : {desktopLabel, explanationLabel}) {
        column->addWidget(label);
    }
    column->addLayout(choice);
    for (QLabel* label : {statusLabel_, placeLabel_, messageLabel_}) {
        column->addWidget(label);
    }
    column->addStretch();
    column->addLayout(buttons);

    setTabOrder(fileManagerBox_, installButton_);
    setTabOrder(installButton_, closeButton);
    setTabOrder(closeButton, messageLabel_);

    addFileManagers(session, ofDesktop);
    connect(fileManagerBox_, &QComboBox::currentIndexChanged, this, [this] {
        showMessage({});
        refresh();
    });
    connect(installButton_, &QPushButton::clicked, this, [this] { installOrRemove(); });
    connect(closeButton, &QPushButton::clicked, this, [this] { close(); });
    refresh();
    resize(kWidth, layout()->totalHeightForWidth(kWidth));
    installButton_->setFocus();
}

// The desktop's first, then those the user could use, then the rest.
void FileManagerWindow::addFileManagers(const DesktopSession& session, std::optional<FileManager> ofDesktop) {
    const auto rank = [&](FileManager manager) {
        const bool isUsable = session.hasProgram(ProgramOf(manager)) || entries_->isInstalled(manager);
        return manager == ofDesktop ? 0 : isUsable ? 1 : 2;
    };
    auto managers = kFileManagers;
    std::stable_sort(managers.begin(), managers.end(),
                     [&](FileManager left, FileManager right) { return rank(left) < rank(right); });
    for (const FileManager manager : managers) {
        const QString remark = rank(manager) == 2 ? QStringLiteral(" (not found here)") : QString();
        fileManagerBox_->addItem(Name(manager) + remark, static_cast<int>(manager));
    }
}

FileManager FileManagerWindow::selected() const {
    return static_cast<FileManager>(fileManagerBox_->currentData().toInt());
}

void FileManagerWindow::refresh() {
    const FileManager manager = selected();
    const bool isInstalled = entries_->isInstalled(manager);
    const QString button = isInstalled ? QStringLiteral("&Remove") : QStringLiteral("&Install");
    statusLabel_->setText(isInstalled ? QStringLiteral("The entry is installed.")
                                      : QStringLiteral("The entry is not installed."));
    placeLabel_->setText(isInstalled ? QString(FactsOf(manager).place) : QString());
    installButton_->setText(button);
    installButton_->setAccessibleDescription(
        statusLabel_->text() + QLatin1Char(' ') +
        (isInstalled ? QStringLiteral("Removes it from %1.") : QStringLiteral("Adds it to %1."))
            .arg(Name(manager)));
    makeRoom();
}

void FileManagerWindow::installOrRemove() {
    QString message;
    const FileManager manager = selected();
    try {
        if (entries_->isInstalled(manager)) {
            entries_->remove(manager);
        } else {
            entries_->install(manager);
        }
    } catch (const std::exception& error) {
        message = QString::fromUtf8(error.what());
    }
    refresh();
    showMessage(message);
}

void FileManagerWindow::showMessage(const QString& text) {
    messageLabel_->setText(text);
    messageLabel_->setVisible(!text.isEmpty());
    if (!text.isEmpty()) {
        QAccessibleEvent alert(messageLabel_, QAccessible::Alert);
        QAccessible::updateAccessibility(&alert);
    }
    makeRoom();
}

void FileManagerWindow::makeRoom() {
    layout()->activate();
    const int needed = layout()->totalHeightForWidth(width());
    if (needed > height()) {
        resize(width(), needed);
    }
}

// The entry may have come or gone while the user was elsewhere.
void FileManagerWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange && isActiveWindow()) {
        refresh();
    }
    QDialog::changeEvent(event);
}

}  // namespace useragent
