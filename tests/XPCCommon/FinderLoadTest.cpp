#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <random>
#include <thread>

#include "HostProcess.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PrivateBus.h"

// The Finder extension service under load, and killed under load: all ends are processes of their own.
namespace {

using namespace std::chrono_literals;

constexpr int kClients = 8;
// Only a request that hangs takes so long: its own limit is 100 milliseconds, the rest is the machine's.
constexpr std::chrono::milliseconds kHangs = 5s;

class FinderLoadTest : public testing::Test {
 protected:
    FinderLoadTest() {
        std::ofstream(folder / "classifiers.json") << R"({"AllowedExtensions": ["txt", "csv"]})";
        std::ofstream(folder / "settings.json")
            << R"({"LogLevel": "Warn", "IsExtensionMenuAvailable": true, "Products": [{"Name": "Host",)"
            << R"("InstallPath": ")" << folder.path().string()
            << R"(", "NativeName": "TessarinServiceHost"}]})";
    }

    // Whoever looks at "/generation" sees which of the hosts answers.
    void startHost(int generation) {
        std::ofstream records(folder / "records.json");
        records << R"({"/generation": [{"Name": ")" << generation << R"("}])";
        for (int i = 0; i < 64; ++i) {
            const std::string path = "/fixed/" + std::to_string(i);
            records << ",\n\"" << path << R"(": [{"Name": ")" << path << R"("}])";
        }
        records << "}";
        records.close();
        host = std::make_unique<HostProcess>(
            bus.address(), std::vector<std::string>{"--json", "--log-level", "Silent", "--settings",
                                                    (folder / "settings.json").string(), "--classifiers",
                                                    (folder / "classifiers.json").string(), "--records",
                                                    (folder / "records.json").string()});
        ASSERT_TRUE(host->isReady()) << host->process().errors();
    }
    void startClients(const std::string& mode, const std::string& count = {}) {
        for (int i = 0; i < kClients; ++i) {
            clients.push_back(std::make_unique<fake::ChildProcess>(
                std::vector<std::string>{TESSARIN_FINDER_REQUESTER, mode, name(i), count},
                std::map<std::string, std::string>{{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()}}));
        }
    }
    std::string hostState() {
        const auto status = host->process().wait(0ms);
        return (status ? "has ended with " + std::to_string(*status) : std::string("runs")) + "; " +
               host->process().errors();
    }
    static std::string name(int client) { return "client" + std::to_string(client); }
    // A client's last line, once it has ended.
    rapidjson::Document result(fake::ChildProcess& client) {
        rapidjson::Document document;
        while (const auto line = client.readLine(600s)) {
            document.Parse(line->c_str());
        }
        EXPECT_EQ(client.wait(60s), 0) << client.errors();
        return document;
    }

    fake::TemporaryFolder folder;
    fake::PrivateBus bus;
    std::unique_ptr<HostProcess> host;
    std::vector<std::unique_ptr<fake::ChildProcess>> clients;
};

TEST_F(FinderLoadTest, NothingIsLostMixedUpOrReorderedForEightClientsInParallel) {
    constexpr int kRequests = 10'000;
    ASSERT_NO_FATAL_FAILURE(startHost(1));
    startClients("count", std::to_string(kRequests));
    for (const auto& client : clients) {
        const auto tally = result(*client);
        ASSERT_TRUE(tally.IsObject()) << client->errors();
        EXPECT_EQ(tally["answered"].GetInt() + tally["sent"].GetInt(), kRequests);
        EXPECT_EQ(tally["neutral"].GetInt(), 0);
        EXPECT_EQ(tally["wrong"].GetInt(), 0);
    }
    host->process().write("quit\n");
    EXPECT_EQ(host->process().wait(60s), 0) << host->process().errors();

    // The lines that each client logged, in the order in which the service wrote them.
    std::map<std::string, std::vector<int>> logged;
    for (const std::string& line : fake::ReadLines(folder / "com.tessarin.finderExtension_0.log")) {
        const auto start = line.find("] [client");
        if (start != std::string::npos) {
            const auto blank = line.find(' ', start + 3);
            logged[line.substr(start + 3, blank - start - 3)].push_back(std::stoi(line.substr(blank)));
        }
    }
    std::vector<int> expected;
    for (int i = 6; i < kRequests; i += 7) {
        expected.push_back(i);
    }
    for (int i = 0; i < kClients; ++i) {
        EXPECT_EQ(logged[name(i)], expected);
    }
}

TEST_F(FinderLoadTest, AServiceThatIsKilledFiftyTimesHoldsUpNobodyAndIsFoundAgain) {
    constexpr int kKills = 50;
    constexpr unsigned kSeed = 20261121;
    std::mt19937 random(kSeed);
    std::uniform_int_distribution<int> milliseconds(0, 60);
    startClients("watch");
    for (int generation = 0; generation <= kKills; ++generation) {
        ASSERT_NO_FATAL_FAILURE(startHost(generation));
        for (const auto& client : clients) {
            ASSERT_EQ(client->readLine(60s), "generation " + std::to_string(generation))
                << "not connected again; the client: " << client->errors() << "\nthe host: " << hostState();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
        host->process().signal(SIGKILL);
        EXPECT_EQ(host->process().wait(), -SIGKILL);
    }
    int answered = 0;
    int neutral = 0;
    int slow = 0;
    int slowest = 0;
    for (const auto& client : clients) {
        client->closeInput();
        const auto tally = result(*client);
        ASSERT_TRUE(tally.IsObject()) << client->errors();
        EXPECT_EQ(tally["wrong"].GetInt(), 0);
        answered += tally["answered"].GetInt();
        neutral += tally["neutral"].GetInt();
        slow += tally["slow"].GetInt();
        slowest = std::max(slowest, tally["slowest"].GetInt());
    }
    EXPECT_GT(answered, kKills);
    EXPECT_GT(neutral, 0);
    EXPECT_LT(slow, answered / 100) << "took more than a second";
    EXPECT_LT(slowest, kHangs.count());
    std::cout << answered << " requests answered, " << neutral << " not; the slowest took " << slowest
              << " ms\n";
}

}  // namespace
