// Measures how long a report needs from the accessibility signal that causes it to the daemon's end, in one
// process so that both moments are taken from one clock: it listens to the browsers' signals and is the
// daemon's end itself. A report is paired with the insertion after which the field's text is as long as the
// reported one: the texts are ASCII, and each key makes a longer one.
//
// Writes "ready" when it listens; ends when its standard input does and then writes one JSON object:
// {"samples_us": {"<browser>": [...]}, "unreported": N}.
#include <QCoreApplication>
#include <QSocketNotifier>
#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "accessibility/AtspiQueries.h"
#include "accessibility/AtspiSettings.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace {

using cmn::bus::Connection;
using cmn::bus::Message;
using Clock = std::chrono::steady_clock;
namespace atspi = useragent::atspi;

// The agent may be served before this program is; its report is then here before the signal.
constexpr std::chrono::milliseconds kMostAhead{100};

constexpr std::chrono::seconds kDeadline{5};

// Any thread.
class Stopwatch {
 public:
    void inserted(std::size_t length) {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex_);
        const auto report = early_.extract(length);
        if (report && now - report.mapped().at < kMostAhead) {
            samples_[report.mapped().browser].push_back(0);
        } else {
            unreported_ += signals_.contains(length) ? 1 : 0;
            signals_[length] = now;
        }
    }

    void reported(const std::string& browser, std::size_t length) {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex_);
        if (const auto signal = signals_.extract(length)) {
            const std::chrono::duration<double, std::micro> needed = now - signal.mapped();
            samples_[browser].push_back(needed.count());
        } else {
            early_[length] = {now, browser};
        }
    }

    void print() {
        const std::lock_guard lock(mutex_);
        std::printf("{\"samples_us\": {");
        const char* separator = "";
        for (const auto& [browser, samples] : samples_) {
            std::printf("%s\"%s\": [", separator, browser.c_str());
            for (std::size_t i = 0; i < samples.size(); ++i) {
                std::printf("%s%.1f", i ? ", " : "", samples[i]);
            }
            std::printf("]");
            separator = ", ";
        }
        std::printf("}, \"unreported\": %zu}\n", unreported_ + signals_.size());
    }

 private:
    struct Report {
        Clock::time_point at;
        std::string browser;
    };

    std::mutex mutex_;
    std::map<std::size_t, Clock::time_point> signals_;  // without a report yet, by the length of the text
    std::map<std::size_t, Report> early_;
    std::map<std::string, std::vector<double>> samples_;
    std::size_t unreported_ = 0;
};

// Hears insertions into fields one can type in: a browser also tells of the texts in its lists.
class SignalReceiver {
 public:
    SignalReceiver(Stopwatch& stopwatch, std::shared_ptr<Connection> bus)
        : stopwatch_(stopwatch), bus_(std::move(bus)) {}

    // False when the bus does not let it.
    bool listen() {
        std::promise<bool> installed;
        signals_ = bus_->subscribe(
            std::string("type='signal',interface='") + atspi::kObjectEventInterface +
                "',member='TextChanged'",
            [this](const Message& signal) { textChanged(signal); },
            [&](const std::optional<cmn::bus::Error>& error) { installed.set_value(!error); });
        return installed.get_future().get();
    }

 private:
    // In the bus's thread, as all here.
    void textChanged(const Message& signal) {
        const atspi::ObjectRef object{std::string(signal.sender()), std::string(signal.path())};
        const auto [known, isNew] = isEditable_.try_emplace({object.busName, object.path}, false);
        if (isNew) {
            cmn::bus::Ask<atspi::States>(*bus_, atspi::StatesOf(object), Clock::now() + kDeadline,
                                         [&isEditable = known->second](const auto& states) {
                                             isEditable =
                                                 states && atspi::Has(*states, atspi::State::editable);
                                         });
        }
        const auto change = atspi::TextChangeOf(signal);
        if (known->second && change && change->kind == useragent::TextChange::Kind::inserted) {
            stopwatch_.inserted(change->offset + change->length);
        }
    }

    Stopwatch& stopwatch_;
    const std::shared_ptr<Connection> bus_;
    std::shared_ptr<cmn::bus::Subscription> signals_;
    std::map<std::pair<std::string, std::string>, bool> isEditable_;  // nothing is ever removed
};

// Null when the bus cannot be reached.
std::shared_ptr<Connection> AccessibilityBus(const std::shared_ptr<cmn::bus::Loop>& loop) {
    const auto open = [&](const std::string& address) {
        cmn::bus::Options options;
        options.address = address;
        return Connection::openAndWait(loop, std::move(options)).valueOr(nullptr);
    };
    const auto session = open(useragent::SettingsOfThisSession().sessionBusAddress);
    return session ? open(cmn::bus::AskAndWait(session, atspi::AddressOfAccessibilityBus(),
                                               Clock::now() + kDeadline)
                              .valueOr(""))
                   : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Stopwatch stopwatch;
    // One loop for both, so that neither moment is taken later than it was.
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    const auto bus = AccessibilityBus(dispatch->loop());
    SignalReceiver receiver(stopwatch, bus);
    if (!bus || !receiver.listen()) {
        std::fprintf(stderr, "the accessibility bus cannot be reached\n");
        return 1;
    }
    auto server =
        cmn::CreateUserAgentXPCServer([&](const std::string& url, const std::string& browser, std::int32_t,
                                          const auto& /*peer*/) { stopwatch.reported(browser, url.size()); },
                                      dispatch, std::make_shared<cmn::DBusXPCTransport>(dispatch));
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    std::puts("ready");
    std::fflush(stdout);
    const int code = QCoreApplication::exec();
    server.reset();
    bus->close("the end");
    dispatch->stop();
    stopwatch.print();
    return code;
}
