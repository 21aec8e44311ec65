#include "interface/FocusRing.h"

#include <QApplication>
#include <QPainter>
#include <QPalette>
#include <cstdlib>

namespace useragent {

namespace {

constexpr int kLeastContrast = 60;  // of 255 steps of brightness

// The colour of selections where it stands out, else that of text, which does in every theme.
QColor RingColour(const QPalette& palette) {
    const QColor highlight = palette.color(QPalette::Active, QPalette::Highlight);
    const QColor window = palette.color(QPalette::Active, QPalette::Window);
    const int contrast = std::abs(qGray(highlight.rgb()) - qGray(window.rgb()));
    return contrast >= kLeastContrast ? highlight : palette.color(QPalette::Active, QPalette::WindowText);
}

}  // namespace

FocusRing::FocusRing(QWidget* window) : QFocusFrame(window), window_(window) {
    connect(qApp, &QApplication::focusChanged, this,
            [this](QWidget* /*before*/, QWidget* focused) { follow(focused); });
}

void FocusRing::follow(QWidget* focused) {
    const bool isWithin = focused != nullptr && focused != window_ && window_->isAncestorOf(focused);
    setWidget(isWithin ? focused : nullptr);
}

void FocusRing::paintEvent(QPaintEvent* /*event*/) {
    QPainter(this).fillRect(rect(), RingColour(palette()));
}

}  // namespace useragent
