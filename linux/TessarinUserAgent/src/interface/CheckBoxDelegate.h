#pragma once

#include <QStyledItemDelegate>

namespace useragent {

// Draws a check box that nobody can switch so that it is seen on any background: styles draw the edge of a
// disabled one darker than the window, which is lost in a dark theme.
class CheckBoxDelegate : public QStyledItemDelegate {
    Q_OBJECT

 public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
};

}  // namespace useragent
