#pragma once

#include <QFocusFrame>

namespace useragent {

// Shows which part of a window has the keyboard focus, by a line around it: labels, tables and texts to read
// do not show it in most styles. Follows the focus as long as it is within the window. Main thread.
class FocusRing : public QFocusFrame {
    Q_OBJECT

 public:
    explicit FocusRing(QWidget* window);

 protected:
    void paintEvent(QPaintEvent* event) override;

 private:
    void follow(QWidget* focused);

    QWidget* const window_;
};

}  // namespace useragent
