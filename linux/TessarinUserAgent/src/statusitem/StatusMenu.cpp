#include "statusitem/StatusMenu.h"

#include <QAction>
#include <QMenu>
#include <QString>
#include <QVariant>
#include <string>
#include <utility>

#include "statusitem/Callbacks.h"
#include "statusitem/DrawnMenu.h"
#include "statusitem/StatusIcons.h"
#include "useragent/DisplayText.h"

namespace useragent {
namespace {

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
    QObject::connect(action, &QAction::triggered, action, selected);
    return action;
}

}  // namespace

StatusMenu::StatusMenu(std::function<void()> quit)
    : drawnMenu_(std::make_unique<DrawnMenu>()), separator_(drawnMenu_->addSeparator()) {
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

void StatusMenu::update() {
    CallNoThrow(needsUpdate_);
}

}  // namespace useragent
