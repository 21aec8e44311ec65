#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Records.h"
#include "ServiceProcess.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/HurriedDispatch.h"
#include "xpccommon/FinderExtensionXPCClient.h"

// What a question about a file costs over the bus: the version, then the scan result. The peer sends the same
// payload through the bus library alone. Both services are processes of their own; runs on a private bus.
namespace {

constexpr double kPatience = 1000;  // an answer that took longer than 100 ms would not count
constexpr int kClients = 8;
constexpr int kRequestsPerClient = 100;

// Asks for so many records; whether they came.
using Ask = std::function<bool(int count)>;

class OurClient {
 public:
    explicit OurClient(const std::shared_ptr<cmn::LinuxDispatch>& dispatch,
                       const std::shared_ptr<cmn::DBusXPCTransport>& transport)
        : client_(std::make_shared<cmn::FinderExtensionXPCClient>(
              std::make_shared<fake::HurriedDispatch>(dispatch, 1, kPatience), transport)) {
        client_->connect();
    }
    bool ask(int count) {
        return client_->getFileFilters(std::to_string(count)).size() == static_cast<std::size_t>(count);
    }

 private:
    const std::shared_ptr<cmn::FinderExtensionXPCClient> client_;
};

class BareClient {
 public:
    BareClient() : bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, nextName())) {}
    bool ask(int count) {
        if (bus_.call(message("Version")).arguments() != QVariantList{QStringLiteral("1.0")}) {
            return false;
        }
        QDBusMessage question = message("GetScanResult");
        question.setArguments({QString::number(count)});
        const QDBusMessage answer = bus_.call(question);
        return !answer.arguments().isEmpty() && qdbus_cast<QtRecords>(answer.arguments()[0]).size() == count;
    }

 private:
    static QString nextName() {
        static std::atomic<int> last{0};
        return QStringLiteral("bare-%1").arg(++last);
    }
    static QDBusMessage message(const char* member) {
        return QDBusMessage::createMethodCall(
            QString::fromLatin1(ServiceProcess::kBareName), QString::fromLatin1(ServiceProcess::kBarePath),
            QString::fromLatin1(ServiceProcess::kBareName), QString::fromLatin1(member));
    }

    QDBusConnection bus_;
};

void RoundTrip(benchmark::State& state, const Ask& ask, int count) {
    if (!ask(count)) {
        state.SkipWithError("no answer");
        return;
    }
    for (auto _ : state) {
        if (!ask(count)) {
            state.SkipWithError("wrong answer");
            break;
        }
    }
}

void Throughput(benchmark::State& state, const std::vector<Ask>& clients) {
    for (auto _ : state) {
        std::atomic<int> wrong{0};
        std::vector<std::thread> threads;
        for (const Ask& ask : clients) {
            threads.emplace_back([&] {
                for (int i = 0; i < kRequestsPerClient; ++i) {
                    wrong += ask(1) ? 0 : 1;
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (wrong > 0) {
            state.SkipWithError("wrong answers");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kClients * kRequestsPerClient);
}

void Register(const std::string& who, const std::vector<Ask>& clients) {
    for (const int count : {1, 100, 10'000}) {
        benchmark::RegisterBenchmark(
            ("messages/scan_result/" + std::to_string(count) + "/" + who).c_str(),
            [ask = clients[0], count](benchmark::State& state) { RoundTrip(state, ask, count); })
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark(("messages/throughput/8_clients/" + who).c_str(),
                                 [clients](benchmark::State& state) { Throughput(state, clients); })
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

int RunBenchmarks(int argc, char** argv) {
    const ServiceProcess ourService(ServiceProcess::kOurs, cmn::kFinderExtensionXPCMachServiceName);
    const ServiceProcess bareService(ServiceProcess::kBare, ServiceProcess::kBareName);
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    {
        const auto transport = std::make_shared<cmn::DBusXPCTransport>(dispatch);
        std::vector<Ask> ours;
        std::vector<Ask> bare;
        for (int i = 0; i < kClients; ++i) {
            ours.emplace_back([client = std::make_shared<OurClient>(dispatch, transport)](int count) {
                return client->ask(count);
            });
            bare.emplace_back(
                [client = std::make_shared<BareClient>()](int count) { return client->ask(count); });
        }
        Register("ours", ours);
        Register("bare", bare);
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
    const QCoreApplication application(argc, argv);
    qDBusRegisterMetaType<QMap<QString, QString>>();
    qDBusRegisterMetaType<QtRecords>();
    const std::string kind = argc > 1 ? argv[1] : "";
    if (kind == ServiceProcess::kOurs && argc > 2) {
        return ServiceProcess::runOurs(argv[2]);
    }
    if (kind == ServiceProcess::kBare) {
        return ServiceProcess::runBare();
    }
    return RunBenchmarks(argc, argv);
}
