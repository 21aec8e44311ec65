#pragma once

#include <QLineEdit>

namespace useragent {

// A text of one line, perhaps a long one, to read and copy: while it is too long for its place and not
// focused, its middle is left out. The tooltip shows it whole.
class PathField : public QLineEdit {
    Q_OBJECT

 public:
    explicit PathField(QWidget* parent = nullptr);

    void showText(const QString& text);
    // What is painted while it is not focused.
    QString elidedText() const;

 protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace useragent
