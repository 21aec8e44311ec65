#include "interface/QtApplicationInterface.h"

#include <QCoreApplication>
#include <QTimer>
#include <exception>
#include <utility>

#include "common/log.h"
#include "interface/PropertiesForm.h"
#include "interface/StartupNotification.h"
#include "statusitem/TrayStatusItem.h"

namespace useragent {

namespace {

class FormWindow : public PropertiesWindow {
 public:
    explicit FormWindow(std::function<void()> willClose) : form_(new PropertiesForm(std::move(willClose))) {}
    ~FormWindow() override {
        form_->hide();
        form_->deleteLater();  // it may be in the middle of its own event
    }
    FormWindow(const FormWindow&) = delete;
    FormWindow& operator=(const FormWindow&) = delete;

    void show(std::unique_ptr<FileFiltersViewController> controller,
              const std::string& activationToken) override {
        form_->load(std::move(controller));
        form_->centre();
        ShowActivated(*form_, activationToken);
    }

 private:
    PropertiesForm* const form_;
};

}  // namespace

QtApplicationInterface::QtApplicationInterface(SessionBusPlace bus, bool hasDisplay)
    : bus_(std::move(bus)), hasDisplay_(hasDisplay) {}

std::shared_ptr<StatusItem> QtApplicationInterface::createStatusItem(std::function<void()> menuNeedsUpdate) {
    return std::make_shared<TrayStatusItem>(
        bus_, std::make_shared<StatusMenu>([] { QCoreApplication::exit(); }), std::move(menuNeedsUpdate));
}

std::unique_ptr<PropertiesWindow> QtApplicationInterface::createPropertiesWindow(
    std::function<void()> willClose) {
    if (!hasDisplay_) {
        TLOG_WARN("A properties window cannot be made: the agent has no display");
        return nullptr;
    }
    try {
        return std::make_unique<FormWindow>(std::move(willClose));
    } catch (const std::exception& e) {
        TLOG_ERROR("A properties window cannot be made: {}", e.what());
        return nullptr;
    }
}

void QtApplicationInterface::scheduleRepeatingTimer(std::chrono::seconds interval,
                                                    std::function<void()> tick) {
    auto* const timer = new QTimer(&timers_);
    QObject::connect(timer, &QTimer::timeout, timer, std::move(tick));
    timer->start(interval);
}

}  // namespace useragent
