#include "interface/ToolTip.h"

namespace useragent {

namespace {

constexpr qsizetype kLongest = 4096;

}  // namespace

QString ToolTipOf(const QString& text) {
    // Tooltips guess whether a text is markup; escaped it never is.
    return text.isEmpty() ? QString() : "<qt>" + text.left(kLongest).toHtmlEscaped() + "</qt>";
}

}  // namespace useragent
