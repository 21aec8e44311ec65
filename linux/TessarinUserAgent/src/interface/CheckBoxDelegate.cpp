#include "interface/CheckBoxDelegate.h"

#include <QApplication>
#include <QPainter>
#include <QPolygonF>
#include <QStyle>
#include <algorithm>

namespace useragent {

namespace {

constexpr double kCorner = 2;
constexpr double kTickWidth = 1.8;

// Between text and background: weaker than what can be used, and still three times as bright or dark.
QColor EdgeColour(const QPalette& palette) {
    const QColor text = palette.color(QPalette::Active, QPalette::Text);
    const QColor base = palette.color(QPalette::Active, QPalette::Base);
    const auto between = [](int one, int other) { return (7 * one + 3 * other) / 10; };
    return {between(text.red(), base.red()), between(text.green(), base.green()),
            between(text.blue(), base.blue())};
}

}  // namespace

void CheckBoxDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    const QStyle& style = item.widget != nullptr ? *item.widget->style() : *QApplication::style();
    const QRect place = style.subElementRect(QStyle::SE_ItemViewItemCheckIndicator, &item, item.widget);
    // The style draws everything else: background, selection.
    const bool isOn = item.checkState == Qt::Checked;
    item.features &= ~QStyleOptionViewItem::HasCheckIndicator;
    style.drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);

    const int side = std::min({place.width(), place.height(), item.rect.height() - 2});
    QRectF box(0, 0, side, side);
    box.moveCenter(QRectF(place).center());
    box.adjust(0.5, 0.5, -0.5, -0.5);  // the middle of the pixels of its edge
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QColor colour = EdgeColour(item.palette);
    painter->setPen(colour);
    painter->drawRoundedRect(box, kCorner, kCorner);
    if (isOn) {
        const auto at = [&box](double x, double y) {
            return QPointF(box.left() + x * box.width(), box.top() + y * box.height());
        };
        painter->setPen(QPen(colour, kTickWidth));
        painter->drawPolyline(QPolygonF({at(0.2, 0.5), at(0.42, 0.75), at(0.8, 0.25)}));
    }
    painter->restore();
}

}  // namespace useragent
