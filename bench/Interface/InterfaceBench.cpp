#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdlib.h>

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>
#include <iterator>
#include <memory>
#include <string>

#include "Records.h"
#include "ServiceProcess.h"
#include "accessibility/AtspiAccessibility.h"
#include "filemanagers/LinuxFileManagerExtension.h"
#include "interface/QtApplicationInterface.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "permissions/LinuxSettingsPanes.h"
#include "useragent/AppDelegate.h"
#include "useragent/PermissionNotices.h"

// How long a user waits: for a window with so many records, for a request over the bus with a service that is
// a process of its own, for the menu with that service and without any. The window's peer is the toolkit's
// own table, filled cell by cell. Runs on a private bus; no display is needed.
namespace {

using useragent::FileFiltersViewController;

FileFiltersViewController::Environment ControllerEnvironment() {
    return {[] { return cmn::proto::TSettings(); },
            [] { return useragent::WallTime(std::chrono::hours(24 * 365 * 56)); }};
}

// Bytes of all keys and values.
double TextOfRecords(int count) {
    std::size_t size = 0;
    for (const auto& record : MakeRecords(count)) {
        for (const auto& [key, value] : record) {
            size += key.size() + value.size();
        }
    }
    return static_cast<double>(size);
}

double UsedBytes() {
    return static_cast<double>(mallinfo2().uordblks);
}

// Shows what `show` makes until it is painted; its end is not part of the time.
template <typename Show>
void ShowWindows(benchmark::State& state, int count, const Show& show) {
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const double before = UsedBytes();
        state.ResumeTiming();
        auto window = show();
        QCoreApplication::processEvents();
        state.PauseTiming();
        bytes = UsedBytes() - before;
        window.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        state.ResumeTiming();
    }
    state.counters["bytes"] = bytes;
    state.counters["bytes_over_text"] = bytes / TextOfRecords(count);
}

std::unique_ptr<useragent::PropertiesWindow> ShowOurs(int count) {
    useragent::QtApplicationInterface interface({}, true);
    auto controller = std::make_unique<FileFiltersViewController>(ControllerEnvironment());
    auto records = MakeRecords(count);
    controller->setFiltersArray(
        {std::make_move_iterator(records.begin()), std::make_move_iterator(records.end())});
    controller->setFileName("/home/someone/customers.csv");
    auto window = interface.createPropertiesWindow([] {});
    window->show(std::move(controller), {});
    return window;
}

std::unique_ptr<QDialog> ShowTableWidget(int count) {
    auto dialog = std::make_unique<QDialog>();
    auto* const table = new QTableWidget(count, 4, dialog.get());
    (new QVBoxLayout(dialog.get()))->addWidget(table);
    const auto records = MakeRecords(count);
    for (int row = 0; row < count; ++row) {
        const auto& record = records[static_cast<std::size_t>(row)];
        int column = 0;
        for (const char* key : {"Name", "SensitiveType", "UniqueCount", "costUsd"}) {
            table->setItem(row, column++, new QTableWidgetItem(QString::fromStdString(record.at(key))));
        }
    }
    dialog->resize(400, 300);
    dialog->show();
    return dialog;
}

// An agent without its watcher.
class Interface {
 public:
    Interface(const std::shared_ptr<cmn::LinuxDispatch>& dispatch,
              const useragent::SessionBusPlace& sessionBus, const cmn::DBusXPCOptions& options) {
        const auto extension = std::make_shared<useragent::LinuxFileManagerExtension>("/nonexistent");
        const auto panes = std::make_shared<useragent::LinuxSettingsPanes>("/nonexistent");
        const auto appMenu = std::make_shared<useragent::AppMenu>(useragent::AppMenu::Environment{
            std::make_shared<useragent::AtspiAccessibility>(dispatch, useragent::SettingsOfThisSession()),
            extension, panes, [] {
                cmn::proto::TSettingsProduct product;
                product.Version = "1.0.0";
                return product;
            }});
        const auto notices =
            std::make_shared<useragent::PermissionNotices>(useragent::PermissionNotices::Environment{
                std::make_shared<useragent::NoNotices>(), extension, panes, useragent::ToldOnce()});
        delegate_ = std::make_shared<useragent::AppDelegate>(useragent::AppDelegate::Environment{
            std::make_shared<useragent::QtApplicationInterface>(sessionBus, true),
            appMenu,
            notices,
            dispatch,
            std::make_shared<cmn::DBusXPCTransport>(dispatch, options),
            ControllerEnvironment(),
            {}});
        delegate_->applicationDidFinishLaunching();
        while (!delegate_->checkFileEncryption("/") && ++attempts_ < 20) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
    }

    void refresh(benchmark::State& state) {
        for (auto _ : state) {
            delegate_->menuNeedsUpdate();
        }
    }
    void request(benchmark::State& state, const std::string& url) {
        for (auto _ : state) {
            delegate_->openURLs({url});
            while (delegate_->openWindows() == 0) {
                QCoreApplication::processEvents();
            }
            QCoreApplication::processEvents();  // painted
            state.PauseTiming();
            for (QWidget* window : QApplication::topLevelWidgets()) {
                if (qobject_cast<QDialog*>(window) != nullptr) {
                    window->close();
                }
            }
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            state.ResumeTiming();
        }
    }

 private:
    std::shared_ptr<useragent::AppDelegate> delegate_;
    int attempts_ = 0;
};

void Register(const std::string& name, const std::function<void(benchmark::State&)>& run) {
    benchmark::RegisterBenchmark(("interface/" + name).c_str(), run)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

int RunBenchmarks(int argc, char** argv) {
    const ServiceProcess service(ServiceProcess::kOurs, cmn::kFinderExtensionXPCMachServiceName);
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    {
        const useragent::SessionBusPlace sessionBus{std::make_shared<cmn::bus::Loop>(),
                                                    cmn::bus::SessionBusAddress()};
        Interface up(dispatch, sessionBus, {});
        Interface down(dispatch, sessionBus, {.systemBusAddress = "unix:path=/nonexistent/bus"});
        for (const int count : {1, 100, 1'000, 10'000}) {
            const std::string window = "window/" + std::to_string(count);
            Register(window + "/ours", [count](benchmark::State& state) {
                ShowWindows(state, count, [&] { return ShowOurs(count); });
            });
            Register(window + "/table_widget", [count](benchmark::State& state) {
                ShowWindows(state, count, [&] { return ShowTableWidget(count); });
            });
        }
        for (const char* count : {"1", "100"}) {
            Register(std::string("request/") + count + "/ours", [&up, count](benchmark::State& state) {
                up.request(state, std::string("tessarin-scheme://showProperties?path=") + count);
            });
        }
        Register("menu/ours", [&up](benchmark::State& state) { up.refresh(state); });
        Register("menu/service_down", [&down](benchmark::State& state) { down.refresh(state); });
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
        benchmark::ClearRegisteredBenchmarks();
        benchmark::Shutdown();
    }
    dispatch->stop();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The agent's privileged services live on the system bus: here that is the private one, too.
    if (const char* bus = ::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus, 1);
    }
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    const QApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (ServiceProcess::isOne(arguments)) {
        return ServiceProcess::run(arguments);
    }
    return RunBenchmarks(argc, argv);
}
