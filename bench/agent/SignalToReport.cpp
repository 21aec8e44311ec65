// Measures how long a report needs from the accessibility signal that causes it to the daemon's end, in one
// process so that both moments are taken from one clock: it listens to the browsers' signals and is the
// daemon's end itself.
//
// Writes "ready" when it listens; ends when its standard input does and then writes one JSON object:
// {"samples_us": {"<browser>": [...]}}.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QSocketNotifier>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "xpccommon/UserAgentXPCServer.h"

namespace {

using Clock = std::chrono::steady_clock;

// Signals that follow each other this closely belong to one change of the field.
constexpr std::chrono::milliseconds kBurstGap{20};

// Pairs each report with the first signal of the burst before it. Any thread.
class Stopwatch {
 public:
    void signalArrived() {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex_);
        if (now - lastSignal_ > kBurstGap) {
            burstStart_ = now;
            reported_ = false;
        }
        lastSignal_ = now;
    }

    void reportArrived(const std::string& browser) {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex_);
        if (!reported_) {
            reported_ = true;
            samples_[browser].push_back(std::chrono::duration<double, std::micro>(now - burstStart_).count());
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
        std::printf("}}\n");
    }

 private:
    std::mutex mutex_;
    Clock::time_point lastSignal_{};
    Clock::time_point burstStart_{};
    bool reported_ = true;
    std::map<std::string, std::vector<double>> samples_;
};

Stopwatch g_stopwatch;

// Starts the watch at the signals of fields one can type in: a browser also tells of the texts in its lists.
class SignalReceiver : public QObject {
    Q_OBJECT
 public:
    explicit SignalReceiver(const QDBusConnection& bus) : bus_(bus) {}

 public slots:
    void textChanged(const QDBusMessage& signal) {
        const auto [known, isNew] = isEditable_.try_emplace({signal.service(), signal.path()}, false);
        if (isNew) {
            known->second = askIfEditable(signal);
        } else if (known->second) {
            g_stopwatch.signalArrived();
        }
    }

 private:
    bool askIfEditable(const QDBusMessage& signal) const {
        constexpr unsigned kEditable = 1U << 7U;
        const QDBusReply<QList<uint>> states =
            bus_.call(QDBusMessage::createMethodCall(signal.service(), signal.path(),
                                                     "org.a11y.atspi.Accessible", "GetState"),
                      QDBus::Block, 1000);
        return states.isValid() && !states.value().isEmpty() && (states.value().first() & kEditable) != 0;
    }

    QDBusConnection bus_;
    std::map<std::pair<QString, QString>, bool> isEditable_;
};

// Nothing when the bus cannot be reached.
std::unique_ptr<SignalReceiver> Listen() {
    QDBusMessage question =
        QDBusMessage::createMethodCall("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress");
    const QDBusMessage answer = QDBusConnection::sessionBus().call(question, QDBus::Block, 5000);
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty()) {
        return nullptr;
    }
    QDBusConnection bus =
        QDBusConnection::connectToBus(answer.arguments().first().toString(), "accessibility");
    auto receiver = std::make_unique<SignalReceiver>(bus);
    const bool connected = bus.connect(QString(), QString(), "org.a11y.atspi.Event.Object", "TextChanged",
                                       receiver.get(), SLOT(textChanged(QDBusMessage)));
    return connected ? std::move(receiver) : nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const std::unique_ptr<SignalReceiver> receiver = Listen();
    if (!receiver) {
        std::fprintf(stderr, "the accessibility bus cannot be reached\n");
        return 1;
    }
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    const auto transport = std::make_shared<cmn::DBusXPCTransport>(dispatch);
    const auto server =
        cmn::CreateUserAgentXPCServer([](const std::string&, const std::string& browser, std::int32_t,
                                         const auto& /*peer*/) { g_stopwatch.reportArrived(browser); },
                                      dispatch, transport);
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    std::puts("ready");
    std::fflush(stdout);
    const int code = QCoreApplication::exec();
    g_stopwatch.print();
    return code;
}

#include "SignalToReport.moc"
