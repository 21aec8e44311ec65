#pragma once

#include <QMenu>

namespace useragent {

// The property of an action whose title is drawn red.
inline constexpr const char* kRedTitle = "tessarinRedTitle";

// A menu that we draw ourselves, not the desktop's panel: it can show titles in red. Main thread.
class DrawnMenu : public QMenu {
    Q_OBJECT

 protected:
    void initStyleOption(QStyleOptionMenuItem* option, const QAction* action) const override;
};

}  // namespace useragent
