#include "interface/QtApplicationInterface.h"

#include <QTimer>
#include <exception>
#include <utility>
#include <vector>

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

struct QtApplicationInterface::Timers {
    std::vector<std::unique_ptr<QTimer>> running;
};

QtApplicationInterface::QtApplicationInterface(SessionBusPlace bus, std::shared_ptr<StatusMenu> menu,
                                               bool hasDisplay)
    : bus_(std::move(bus)),
      menu_(std::move(menu)),
      hasDisplay_(hasDisplay),
      timers_(std::make_unique<Timers>()) {}

QtApplicationInterface::~QtApplicationInterface() = default;

std::shared_ptr<StatusItem> QtApplicationInterface::createStatusItem(std::function<void()> menuNeedsUpdate) {
    return std::make_shared<TrayStatusItem>(bus_, menu_, std::move(menuNeedsUpdate));
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
    auto timer = std::make_unique<QTimer>();
    QObject::connect(timer.get(), &QTimer::timeout, timer.get(), std::move(tick));
    timer->start(interval);
    timers_->running.push_back(std::move(timer));
}

}  // namespace useragent
