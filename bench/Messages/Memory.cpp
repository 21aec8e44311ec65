#include "Memory.h"

#include <malloc.h>

#include <QCoreApplication>
#include <cstdio>
#include <vector>

#include "BareQt.h"
#include "BareSdBus.h"
#include "Ours.h"
#include "Records.h"
#include "ServiceProcess.h"
#include "support/ChildProcess.h"
#include "support/ProcessMemory.h"
#include "xpccommon/FinderExtensionProtocol.h"

namespace memory {

namespace {

constexpr int kRecords = 10'000;
constexpr const char* kOurs = "client-ours";
constexpr const char* kBareQt = "client-bare-qt";
constexpr const char* kBareSdBus = "client-bare-sdbus";

double AllocatedBytes() {
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

struct Kind {
    const char* title;
    const char* service;
    const char* busName;
    const char* client;
};

// From what it needs now to its next peak.
class Growth {
 public:
    explicit Growth(pid_t pid) : pid_(pid), before_(fake::MemoryOf(pid).now) { fake::ForgetPeak(pid); }
    double bytes() const {
        return (static_cast<double>(fake::MemoryOf(pid_).peak) - static_cast<double>(before_)) * 1024;
    }

 private:
    const pid_t pid_;
    const std::size_t before_;  // KiB
};

// Prints one line; false when the client got no answer.
bool Measure(const Kind& kind, double payload) {
    const ServiceProcess service(kind.service, kind.busName);
    fake::ChildProcess client({QCoreApplication::applicationFilePath().toStdString(), kind.client});
    if (client.readLine() != "ready") {
        std::fprintf(stderr, "%s: no answer; %s\n", kind.title, client.errors().c_str());
        return false;
    }
    const Growth ofService(service.pid());
    const Growth ofClient(client.pid());
    client.write("\n");
    if (client.readLine() != "done") {
        std::fprintf(stderr, "%s: wrong answer; %s\n", kind.title, client.errors().c_str());
        return false;
    }
    std::printf(
        "    \"%s\": {\"service_over_payload\": %.2f, \"client_over_payload\": %.2f, "
        "\"both_over_payload\": %.2f},\n",
        kind.title, ofService.bytes() / payload, ofClient.bytes() / payload,
        (ofService.bytes() + ofClient.bytes()) / payload);
    return true;
}

template <typename Client>
int Run(Client& client) {
    if (!client.version() || !client.ask(1)) {
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    std::getchar();
    if (!client.ask(kRecords)) {
        return 1;
    }
    std::puts("done");
    std::fflush(stdout);
    std::getchar();  // looked at before it ends
    return 0;
}

}  // namespace

int Compare() {
    const double without = AllocatedBytes();
    const std::vector<cmn::ScanRecord> records = MakeRecords(kRecords);
    const double payload = static_cast<double>(SizeInMessage(records));
    const double held = AllocatedBytes() - without;
    bool isComplete = true;
    std::printf("{\n");
    for (const Kind& kind :
         {Kind{"ours", ServiceProcess::kOurs, cmn::kFinderExtensionXPCMachServiceName, kOurs},
          Kind{"bare_qt", ServiceProcess::kBareQt, ServiceProcess::kBareQtName, kBareQt},
          Kind{"bare_sdbus", ServiceProcess::kBareSdBus, ServiceProcess::kBareSdBusName, kBareSdBus}}) {
        isComplete = Measure(kind, payload) && isComplete;
    }
    // Once at each end of ours: what scanners make and clients are given.
    std::printf("    \"records_over_payload\": %.2f,\n    \"payload_mib\": %.2f\n}\n", held / payload,
                payload / (1 << 20));
    return isComplete ? 0 : 1;
}

bool IsClient(const std::string& argument) {
    return argument.starts_with("client-");
}

int RunClient(const std::string& argument) {
    if (argument == kOurs) {
        const ours::Surroundings surroundings;
        ours::Client client(surroundings);
        return Run(client);
    }
    if (argument == kBareQt) {
        bare_qt::Client client;
        return Run(client);
    }
    bare_sd_bus::Client client;
    return Run(client);
}

}  // namespace memory
