#include "statusitem/StatusMenu.h"

#include <QAction>
#include <QMenu>
#include <QPointer>
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
class ActionItem : public MenuItem {
 public:
    ActionItem(QAction* action, const char* title) : action_(action), shown_{title} {
        action->setText(PlainTitle(shown_.title));
        action->setIcon(MenuItemIcon(shown_));
        action->setIconVisibleInMenu(true);
    }

    void setContent(const MenuItemContent& content) override {
        if (action_.isNull() || shown_ == content) {
            return;
        }
        const MenuItemContent before = std::exchange(shown_, content);
        action_->setProperty(kRedTitle, content.isRed);
        if (before.isRed != content.isRed || before.image != content.image) {
            action_->setIcon(MenuItemIcon(content));
        }
        if (before.title != content.title) {
            action_->setText(PlainTitle(content.title));
        }
    }

 private:
    const QPointer<QAction> action_;
    MenuItemContent shown_;
};

}  // namespace

struct StatusMenu::State {
    Selections selections;
    std::function<void()> quit;
    std::function<void()> needsUpdate;
};

StatusMenu::StatusMenu(std::function<void()> quit)
    : state_(std::make_shared<State>()), drawnMenu_(std::make_unique<DrawnMenu>()) {
    state_->quit = std::move(quit);
    const auto add = [this](const char* title, const std::function<void()>& selected) {
        QAction* const action = drawnMenu_->addAction(QString());
        QObject::connect(action, &QAction::triggered, action, selected);
        return std::make_shared<ActionItem>(action, title);
    };
    // The titles of the first four stand there only until the first update.
    items_.fulldiskItem =
        add("Full disk access", [state = state_] { CallNoThrow(state->selections.option1); });
    items_.accessibilityItem =
        add("Accessibility", [state = state_] { CallNoThrow(state->selections.option2); });
    items_.finderItem = add("Finder Extension", [state = state_] { CallNoThrow(state->selections.option3); });
    items_.versionItem = add("Tessarin User Agent", [] {});
    drawnMenu_->actions().constLast()->setEnabled(false);
    drawnMenu_->addSeparator();
    add("Quit Tessarin User Agent", [state = state_] { CallNoThrow(state->quit); });
    QObject::connect(drawnMenu_.get(), &QMenu::aboutToShow, drawnMenu_.get(),
                     [state = state_] { CallNoThrow(state->needsUpdate); });
}

StatusMenu::~StatusMenu() = default;

void StatusMenu::setSelections(Selections selections) {
    state_->selections = std::move(selections);
}

void StatusMenu::setNeedsUpdate(std::function<void()> needsUpdate) {
    state_->needsUpdate = std::move(needsUpdate);
}

QMenu& StatusMenu::drawnMenu() {
    return *drawnMenu_;
}

void StatusMenu::update() {
    CallNoThrow(state_->needsUpdate);
}

}  // namespace useragent
