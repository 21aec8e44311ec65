#pragma once

#include <QWidget>
#include <string>

namespace useragent {

// Shows a window in front. With the token that the launcher of the request handed over (an activation token
// or a start-up id, empty for none) the desktop lets it take the focus and ends its busy pointer.
void ShowActivated(QWidget& window, const std::string& token);

}  // namespace useragent
