#pragma once

#include <QString>

namespace useragent {

// A tooltip that shows the text as it is, never as markup; of a very long one the beginning.
QString ToolTipOf(const QString& text);

}  // namespace useragent
