#include "statusitem/StatusMenu.h"

#include <QAction>
#include <QMenu>
#include <QPalette>
#include <QString>
#include <QStyleOptionMenuItem>
#include <QVariant>
#include <exception>
#include <string>
#include <utility>

#include "common/log.h"
#include "statusitem/StatusIcons.h"
#include "useragent/DisplayText.h"
#include "useragent/StatusImage.h"

namespace useragent {
namespace {

// The property of an action whose title is drawn red.
constexpr const char* kRedTitle = "tessarinRedTitle";

// Both stand out from their background by at least the 4.5 to 1 that readable text needs.
const QColor kRedOnLight(0xc0, 0x10, 0x18);
const QColor kRedOnDark(0xff, 0x80, 0x80);

// A menu that we draw ourselves, not the desktop's panel: it can show titles in red.
class DrawnMenu : public QMenu {
 protected:
    void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override {
        QMenu::initStyleOption(option, action);
        if (option == nullptr || action == nullptr || !action->property(kRedTitle).toBool()) {
            return;
        }
        const bool isDark = option->palette.color(QPalette::Window).lightness() < 128;
        const QColor red = isDark ? kRedOnDark : kRedOnLight;
        // Styles differ in which of them they draw a title with. The colour of a selected one stays: red on
        // the colour of the selection could not be read.
        for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
            option->palette.setColor(QPalette::Active, role, red);
            option->palette.setColor(QPalette::Inactive, role, red);
        }
    }
};

// Calls what the toolkit is to call, from which nothing may be thrown.
void CallNoThrow(const std::function<void()>& callback) noexcept {
    try {
        // A callback may replace itself where it is kept.
        std::function<void()> kept;
        kept = callback;
        if (kept) {
            kept();
        }
    } catch (const std::exception& error) {
        TLOG_ERROR("The status menu -- failed: {}", error.what());
    } catch (...) {
        TLOG_ERROR("The status menu -- failed");
    }
}

// An ampersand would be taken for the mark of a keyboard shortcut.
QString PlainTitle(const std::string& title) {
    return QString::fromStdString(OneLine(title)).replace(QLatin1Char('&'), QLatin1String("&&"));
}

// Every rewriting is told to the panel, which would make an open menu jump.
void Rewrite(QAction& action, const MenuItemContent& before, const MenuItemContent& now) {
    action.setProperty(kRedTitle, now.isRed);
    if (before.isRed != now.isRed || before.image != now.image) {
        action.setIcon(MenuItemIcon(now));
    }
    if (before.title != now.title) {
        action.setText(PlainTitle(now.title));
    }
}

QAction* NewAction(QMenu& menu, const std::function<void()>& selected) {
    auto* const action = new QAction(MenuItemIcon({}), QString(), &menu);
    action->setIconVisibleInMenu(true);
    if (selected) {
        QObject::connect(action, &QAction::triggered, action, selected);
    }
    return action;
}

}  // namespace

StatusMenu::StatusMenu(std::function<void()> quit)
    : drawnMenu_(std::make_unique<DrawnMenu>()),
      separator_(drawnMenu_->addSeparator()),
      service_(NewAction(*drawnMenu_, nullptr)) {
    service_->setText(kServiceTitle);
    service_->setEnabled(false);
    drawnMenu_->addAction(service_);
    QAction* const last = NewAction(*drawnMenu_, [quit = std::move(quit)] { CallNoThrow(quit); });
    last->setText(PlainTitle("Quit Tessarin User Agent"));
    drawnMenu_->addAction(last);
    QObject::connect(drawnMenu_.get(), &QMenu::aboutToShow, drawnMenu_.get(), [this] { update(); });
}

StatusMenu::~StatusMenu() = default;

void StatusMenu::addItem(bool canBeSelected) {
    QAction* const action =
        NewAction(*drawnMenu_, [this, index = shown_.size()] { CallNoThrow(shown_[index].selected); });
    action->setEnabled(canBeSelected);
    drawnMenu_->insertAction(separator_, action);
    shown_.emplace_back();
}

void StatusMenu::setItems(const MenuItems& items) {
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index == shown_.size()) {
            addItem(items[index].selected != nullptr);
        }
        const MenuItem before = std::exchange(shown_[index], items[index]);
        Rewrite(*drawnMenu_->actions().at(static_cast<qsizetype>(index)), before.content,
                items[index].content);
    }
}

void StatusMenu::setService(const std::string& words) {
    service_->setText(PlainTitle(words));
}

void StatusMenu::update() {
    CallNoThrow(needsUpdate_);
}

}  // namespace useragent
