// A client of the Finder extension service as a process of its own, for the load tests. Checks every answer.
//
//   FinderRequester count NAME COUNT   makes COUNT requests, waiting as long as it takes for each answer
//   FinderRequester watch NAME         makes requests with the real waits until its input ends; writes
//                                      "generation X" when it is connected and a service with other records
//                                      answers
//
// Ends with one line of JSON: requests answered, neutral (no answer in time), wrong (neither) and sent
// (nothing to tell by), those that took more than a second, and the slowest in milliseconds.
#include <poll.h>
#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "common/SystemUtils.h"
#include "linux_usercommon/DBusXPCTransport.h"
#include "linux_usercommon/LinuxDispatch.h"
#include "support/HurriedDispatch.h"
#include "support/HurriedTransport.h"
#include "support/WaitFor.h"
#include "xpccommon/FinderExtensionXPCClient.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double kHurry = 1.0 / 30;  // the three seconds before a reconnect are a tenth of one
constexpr double kPatience = 1000;
constexpr int kFixedPaths = 64;

struct Tally {
    int answered = 0;
    int neutral = 0;
    int wrong = 0;
    int sent = 0;
    int slow = 0;
    Clock::duration slowest{};

    void count(bool right, bool isNeutral) { ++(right ? answered : isNeutral ? neutral : wrong); }
};

class Requester {
 public:
    Requester(std::string name, const std::shared_ptr<cmn::LinuxDispatch>& dispatch, double patience)
        : name_(std::move(name)),
          client_(std::make_shared<cmn::FinderExtensionXPCClient>(
              std::make_shared<fake::HurriedDispatch>(dispatch, kHurry, patience),
              std::make_shared<fake::HurriedTransport>(std::make_shared<cmn::DBusXPCTransport>(dispatch),
                                                       patience))) {
        client_->setCompleteblock([checked = checked_](bool encrypted) { *checked += encrypted ? 0 : 1; });
        client_->connect();
    }

    // Every kind of request in turn. The host of the tests knows what each is answered with.
    void request(int number) {
        const auto start = Clock::now();
        switch (number % 7) {
            case 0:
            case 1: {
                const std::string path = "/fixed/" + std::to_string(number % kFixedPaths);
                const auto records = client_->getFileFilters(path);
                tally.count(records == std::vector<cmn::ScanRecord>{{{"Name", path}}}, records.empty());
                break;
            }
            case 2: {
                const auto status = client_->decrypt("/absent/" + name_ + "/" + std::to_string(number) + "/");
                tally.count(status == 3, status == 2);
                break;
            }
            case 3: {
                const auto extensions = client_->allowedExtensions();
                tally.count(extensions == std::vector<std::string>{"txt", "csv"}, extensions.empty());
                break;
            }
            case 4: {
                const auto flags = client_->getUIVisibilityStatuses();
                tally.count(flags == visibility(true), flags == visibility(false));
                break;
            }
            case 5: {
                const bool granted = client_->checkFullDiskAccess();
                if (cmn::IsFullDiskAccessGranted()) {
                    tally.count(granted, !granted);
                } else {
                    granted ? ++tally.wrong : ++tally.sent;
                }
                break;
            }
            default:
                client_->sendLogMessage("[" + name_ + " " + std::to_string(number) + "]", "Warn");
                client_->checkEncryptionStatus("/absent/file");
                ++checks_;
                ++tally.sent;
        }
        const auto duration = Clock::now() - start;
        tally.slow += duration > 1s ? 1 : 0;
        tally.slowest = std::max(tally.slowest, duration);
    }

    std::string generation() {
        const auto records = client_->getFileFilters("/generation");
        return records.size() == 1 ? records[0].at("Name") : std::string();
    }
    bool connected() const { return client_->connected(); }
    // Whether every check of an encryption status got its answer.
    bool awaitChecks() const {
        return fake::WaitFor([&] { return *checked_ == checks_; }, 60s);
    }

    Tally tally;

 private:
    static cmn::UIVisibilityStatuses visibility(bool menu) {
        return {{"menuStatus", menu}, {"iconsStatus", false}, {"agentIconDisable", false}};
    }

    const std::string name_;
    const std::shared_ptr<cmn::FinderExtensionXPCClient> client_;
    const std::shared_ptr<std::atomic<int>> checked_ = std::make_shared<std::atomic<int>>(0);
    int checks_ = 0;
};

bool InputEnded() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0;
}

void Say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

void Count(Requester& requester, int count) {
    if (!fake::WaitFor([&] { return requester.connected(); }, 60s)) {
        ++requester.tally.wrong;
        return;
    }
    for (int i = 0; i < count; ++i) {
        requester.request(i);
    }
    requester.tally.wrong += requester.awaitChecks() ? 0 : 1;
}

void Watch(Requester& requester) {
    std::string known;
    for (int i = 0; !InputEnded(); ++i) {
        requester.request(i);
        const std::string generation = requester.generation();
        if (!generation.empty() && generation != known && requester.connected()) {
            known = generation;
            Say("generation " + known);
        }
        std::this_thread::sleep_for(3ms);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    if (argc < 3) {
        return 2;
    }
    const bool watches = std::string(argv[1]) == "watch";
    const auto dispatch = std::make_shared<cmn::LinuxDispatch>();
    {
        Requester requester(argv[2], dispatch, watches ? 1 : kPatience);
        watches ? Watch(requester) : Count(requester, std::stoi(argv[3]));
        const Tally& tally = requester.tally;
        Say("{\"answered\": " + std::to_string(tally.answered) +
            ", \"neutral\": " + std::to_string(tally.neutral) +
            ", \"wrong\": " + std::to_string(tally.wrong) + ", \"sent\": " + std::to_string(tally.sent) +
            ", \"slow\": " + std::to_string(tally.slow) + ", \"slowest\": " +
            std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(tally.slowest).count()) +
            "}");
    }
    dispatch->stop();
    return 0;
}
