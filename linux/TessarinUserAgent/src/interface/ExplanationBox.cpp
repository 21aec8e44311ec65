#include "interface/ExplanationBox.h"

#include <QTextDocument>
#include <QtMath>

namespace useragent {

namespace {

constexpr int kLeastWidth = 100;
// What is longer is not measured, which could take long: it scrolls.
constexpr qsizetype kMostMeasured = 20'000;
constexpr int kHigherThanAnyScreen = 20'000;

}  // namespace

ExplanationBox::ExplanationBox(QWidget* parent) : QPlainTextEdit(parent) {
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    connect(this, &QPlainTextEdit::textChanged, this, [this] { updateGeometry(); });
}

int ExplanationBox::heightForWidth(int width) const {
    if (toPlainText().size() > kMostMeasured) {
        return kHigherThanAnyScreen;
    }
    QTextDocument text;
    text.setDefaultFont(font());
    text.setDefaultTextOption(document()->defaultTextOption());
    text.setDocumentMargin(document()->documentMargin());
    text.setPlainText(toPlainText());
    text.setTextWidth(width - 2 * frameWidth());
    // For its scroll bar the toolkit counts one more margin at the end, and a pixel.
    return qCeil(text.size().height() + text.documentMargin()) + 1 + 2 * frameWidth();
}

void ExplanationBox::resizeEvent(QResizeEvent* event) {
    // A bar that is there makes the lines shorter, so that more of them may need it: it would stay.
    setVerticalScrollBarPolicy(height() < heightForWidth(width()) ? Qt::ScrollBarAsNeeded
                                                                  : Qt::ScrollBarAlwaysOff);
    QPlainTextEdit::resizeEvent(event);
}

QSize ExplanationBox::minimumSizeHint() const {
    const int margins = 2 * frameWidth() + qCeil(3 * document()->documentMargin()) + 1;
    return {kLeastWidth, fontMetrics().lineSpacing() + margins};
}

}  // namespace useragent
