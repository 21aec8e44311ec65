#include "statusitem/DrawnMenu.h"

#include <QAction>
#include <QPalette>
#include <QStyleOptionMenuItem>
#include <QVariant>

namespace useragent {
namespace {

// Both stand out from their background by at least the 4.5 to 1 that readable text needs.
const QColor kRedOnLight(0xc0, 0x10, 0x18);
const QColor kRedOnDark(0xff, 0x80, 0x80);

}  // namespace

void DrawnMenu::initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const {
    QMenu::initStyleOption(option, action);
    if (option == nullptr || action == nullptr || !action->property(kRedTitle).toBool()) {
        return;
    }
    const bool isDark = option->palette.color(QPalette::Window).lightness() < 128;
    const QColor red = isDark ? kRedOnDark : kRedOnLight;
    // Styles differ in which of them they draw a title with. The colour of a selected one stays: red on the
    // colour of the selection could not be read.
    for (const QPalette::ColorRole role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText}) {
        option->palette.setColor(QPalette::Active, role, red);
        option->palette.setColor(QPalette::Inactive, role, red);
    }
}

}  // namespace useragent
