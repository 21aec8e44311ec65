#pragma once

#include <QDialog>
#include <functional>
#include <memory>

#include "useragent/FileFiltersViewController.h"

namespace Ui {
class PropertiesForm;
}

namespace useragent {

// The properties window of one file. Main thread.
class PropertiesForm : public QDialog {
    Q_OBJECT

 public:
    // `willClose` is called once, when the user closes the window.
    explicit PropertiesForm(std::function<void()> willClose);
    ~PropertiesForm() override;

    // Fills itself from the controller; once.
    void load(std::unique_ptr<FileFiltersViewController> controller);

    void reject() override { close(); }

    // On the screen where the user works, in its middle.
    void centre();

 protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

 private:
    void setUpLabels();

    const std::unique_ptr<Ui::PropertiesForm> ui_;
    std::shared_ptr<const FileFiltersViewController> controller_;
    std::function<void()> willClose_;
};

}  // namespace useragent
