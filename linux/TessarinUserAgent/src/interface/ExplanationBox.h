#pragma once

#include <QPlainTextEdit>

namespace useragent {

// A text of several lines to read and copy, as high as it needs for its width. Where that is not to be had,
// it scrolls. Main thread.
class ExplanationBox : public QPlainTextEdit {
    Q_OBJECT

 public:
    explicit ExplanationBox(QWidget* parent = nullptr);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize minimumSizeHint() const override;
    QSize sizeHint() const override { return minimumSizeHint(); }

 protected:
    void resizeEvent(QResizeEvent* event) override;
};

}  // namespace useragent
