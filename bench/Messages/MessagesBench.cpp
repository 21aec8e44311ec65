#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <QCoreApplication>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BareQt.h"
#include "BareSdBus.h"
#include "Memory.h"
#include "Ours.h"
#include "ServiceProcess.h"
#include "xpccommon/FinderExtensionProtocol.h"

// What a question about a file costs over the bus: the version, then the scan result; and the version alone.
// The peers send the same payload through a bus library alone. All services are processes of their own; runs
// on a private bus. With the argument "memory" it prints what the largest answer costs in memory instead.
namespace {

constexpr std::size_t kClients = 64;
constexpr int kRequestsPerClient = 100;

// One question of a client; whether the right answer came.
using Ask = std::function<bool()>;

void RoundTrip(benchmark::State& state, const Ask& ask) {
    if (!ask()) {
        state.SkipWithError("no answer");
        return;
    }
    for (auto _ : state) {
        if (!ask()) {
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
                    wrong += ask() ? 0 : 1;
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
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(clients.size()) *
                            kRequestsPerClient);
}

template <typename Client>
void Register(const std::string& who, const std::vector<std::shared_ptr<Client>>& clients) {
    const auto roundTrip = [&](const std::string& what, const Ask& ask) {
        benchmark::RegisterBenchmark(("messages/" + what + "/" + who).c_str(), [ask](
                                                                                   benchmark::State& state) {
            RoundTrip(state, ask);
        })->UseRealTime();
    };
    roundTrip("version", [client = clients[0]] { return client->version(); });
    for (const int count : {1, 100, 10'000}) {
        roundTrip("scan_result/" + std::to_string(count),
                  [client = clients[0], count] { return client->ask(count); });
    }
    for (const std::size_t count : {std::size_t{1}, std::size_t{8}, kClients}) {
        std::vector<Ask> asks;
        for (std::size_t i = 0; i < count; ++i) {
            asks.emplace_back([client = clients[i]] { return client->ask(1); });
        }
        const std::string name = "messages/throughput/" + std::to_string(count) + "_clients/" + who;
        benchmark::RegisterBenchmark(name.c_str(),
                                     [asks](benchmark::State& state) { Throughput(state, asks); })
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
}

int RunBenchmarks(int argc, char** argv) {
    const ServiceProcess ourService(ServiceProcess::kOurs, cmn::kFinderExtensionXPCMachServiceName);
    const ServiceProcess qtService(ServiceProcess::kBareQt, ServiceProcess::kBareQtName);
    const ServiceProcess sdBusService(ServiceProcess::kBareSdBus, ServiceProcess::kBareSdBusName);
    const ours::Surroundings surroundings;
    std::vector<std::shared_ptr<ours::Client>> ofOurs;
    std::vector<std::shared_ptr<bare_qt::Client>> ofQt;
    std::vector<std::shared_ptr<bare_sd_bus::Client>> ofSdBus;
    for (std::size_t i = 0; i < kClients; ++i) {
        ofOurs.push_back(std::make_shared<ours::Client>(surroundings));
        ofQt.push_back(std::make_shared<bare_qt::Client>());
        ofSdBus.push_back(std::make_shared<bare_sd_bus::Client>());
    }
    Register("ours", ofOurs);
    Register("bare_qt", ofQt);
    Register("bare_sdbus", ofSdBus);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::ClearRegisteredBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The agent's privileged services live on the system bus: here that is the private one, too.
    if (const char* bus = ::getenv("DBUS_SESSION_BUS_ADDRESS")) {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus, 1);
    }
    const QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (ServiceProcess::isOne(arguments)) {
        return ServiceProcess::run(arguments);
    }
    if (!arguments.empty() && memory::IsClient(arguments[0])) {
        return memory::RunClient(arguments[0]);
    }
    if (!arguments.empty() && arguments[0] == "memory") {
        return memory::Compare();
    }
    return RunBenchmarks(argc, argv);
}
