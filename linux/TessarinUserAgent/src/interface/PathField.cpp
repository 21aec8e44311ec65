#include "interface/PathField.h"

#include <QFontMetrics>
#include <QPainter>
#include <QStyleOptionFrame>
#include <limits>

#include "interface/ToolTip.h"

namespace useragent {

namespace {

constexpr int kTextMargin = 2;  // what a line edit leaves at each side

}  // namespace

PathField::PathField(QWidget* parent) : QLineEdit(parent) {
    setReadOnly(true);
    setFrame(false);
    setTextMargins(-kTextMargin, 0, -kTextMargin, 0);  // in line with the labels
    setMaxLength(std::numeric_limits<int>::max());
    setBackgroundRole(QPalette::Window);
    QPalette plain = palette();
    plain.setColor(QPalette::Base, Qt::transparent);
    setPalette(plain);
}

void PathField::showText(const QString& text) {
    setText(text);
    setCursorPosition(0);
    setToolTip(ToolTipOf(text));
}

QString PathField::elidedText() const {
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
}

void PathField::paintEvent(QPaintEvent* event) {
    const QString elided = elidedText();
    if (hasFocus() || elided == text()) {
        QLineEdit::paintEvent(event);
        return;
    }
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(contentsRect(), Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine, elided);
}

}  // namespace useragent
