#include "interface/PropertiesForm.h"

#include <QCloseEvent>
#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QShortcut>
#include <utility>

#include "interface/FocusRing.h"
#include "ui_PropertiesForm.h"

namespace useragent {

namespace {

constexpr Qt::WindowFlags kWindowKind = Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                        Qt::WindowSystemMenuHint | Qt::WindowMaximizeButtonHint |
                                        Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint;

QString ToQString(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

PropertiesForm::PropertiesForm(std::function<void()> willClose)
    : QDialog(nullptr, kWindowKind),
      ui_(std::make_unique<Ui::PropertiesForm>()),
      willClose_(std::move(willClose)) {
    ui_->setupUi(this);
    setSizeGripEnabled(false);
    setUpLabels();
    new FocusRing(this);
    connect(new QShortcut(Qt::Key_Escape, this), &QShortcut::activated, this, &QWidget::close);
}

PropertiesForm::~PropertiesForm() = default;

void PropertiesForm::load(std::unique_ptr<FileFiltersViewController> controller) {
    controller_ = std::move(controller);
    ui_->tableView->showFilters(controller_);
    const PropertiesTexts texts = controller_->viewDidLoad(ui_->encryptionInfo->toPlainText().toStdString());
    ui_->fileNameLabel->showText(ToQString(texts.fileNameLabel));
    ui_->fileStateLabel->setText(ToQString(texts.fileStateLabel));
    ui_->serverIDLabel->showText(ToQString(texts.serverIDLabel));
    ui_->totalRiskLabel->showText(ToQString(texts.totalRiskLabel));
    ui_->totalSensetiveRiskLabel->showText(ToQString(texts.totalSensetiveRiskLabel));
    ui_->encryptionStatusLabel->setText(ToQString(texts.encryptionStatusLabel));
    ui_->encryptionPredictLabel->setText(ToQString(texts.encryptionPredictLabel));
    ui_->encryptionInfo->setPlainText(ToQString(texts.encryptionInfo));
    ui_->tableView->setFocus();  // not the path, which would show its beginning only
}

void PropertiesForm::setUpLabels() {
    for (QLabel* label : {ui_->fileStateLabel, ui_->encryptionStatusLabel, ui_->encryptionPredictLabel}) {
        // What a file's name or a service says is never markup.
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        label->setFocusPolicy(Qt::StrongFocus);
    }
}

void PropertiesForm::centre() {
    const QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    screen = screen != nullptr ? screen : QGuiApplication::primaryScreen();
    if (screen != nullptr) {
        QRect place(QPoint(), size());
        place.moveCenter(screen->availableGeometry().center());
        move(place.topLeft());
    }
}

void PropertiesForm::closeEvent(QCloseEvent* event) {
    event->accept();
    if (const auto willClose = std::exchange(willClose_, nullptr)) {
        willClose();
    }
}

void PropertiesForm::changeEvent(QEvent* event) {
    QDialog::changeEvent(event);
    // Some window managers offer to minimise it all the same.
    if (event->type() == QEvent::WindowStateChange && isMinimized()) {
        setWindowState(windowState() & ~Qt::WindowMinimized);
    }
}

}  // namespace useragent
