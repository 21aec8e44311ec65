#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ServiceNames.h"

// A user of the system bus as a process of its own, under another account: reads and writes what the messages
// of others look like to it, with nothing of the product in between. The bus is the one of
// DBUS_SYSTEM_BUS_ADDRESS.
//
//   BusUser USER call [as=NAME] DESTINATION PATH INTERFACE MEMBER [SIGNATURE ARGUMENT...]
//       one call, as the owner of that name; the interface "-" is none. Prints "ok" with the text of the
//       reply, or the error's name
//   BusUser USER signal DESTINATION MEMBER
//       one signal for one receiver
//   BusUser USER serve [NAME...]
//       answers every call with a text; prints its own name, then what arrives, until the input ends
//   BusUser USER agent TEXT
//       the same as an agent whose extractor answers that text; prints its own name when it is registered
//   BusUser USER watch MILLISECONDS
//       asks both services for their version again and again, connecting again when the bus is lost, until
//       the input ends; then prints what it has seen as JSON
//   BusUser USER attack STEP...
//       prints its own name, sends everything, prints "sent", and leaves when the input ends. Steps:
//       scan:COUNT:PATH, text:COUNT:BYTES (a path of that length), records:COUNT:BYTES:MEMBER (an "aa{ss}")
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// No call waits longer; more than any that is answered at all.
constexpr std::uint64_t kPatienceMicroseconds = 10'000'000;

struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

void Check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + std::strerror(-result));
    }
}

void BecomeUser(uid_t user) {
    if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
        ::setresuid(user, user, user) != 0) {
        throw std::runtime_error("the user could not be changed");
    }
    // A change of the user clears it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

Bus Connect() {
    sd_bus* bus = nullptr;
    Check(sd_bus_new(&bus), "new");
    Bus owner(bus);
    const char* address = ::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    Check(sd_bus_set_address(bus, address != nullptr ? address : ""), "address");
    Check(sd_bus_set_bus_client(bus, 1), "client");
    Check(sd_bus_start(bus), "start");
    const char* name = nullptr;
    Check(sd_bus_get_unique_name(bus, &name), "connect");
    return owner;
}

void SayName(sd_bus* bus) {
    const char* name = nullptr;
    Check(sd_bus_get_unique_name(bus, &name), "name");
    std::printf("%s\n", name);
    std::fflush(stdout);
}

Message NewCall(sd_bus* bus, const char* destination, const char* path, const char* interface,
                const char* member) {
    sd_bus_message* message = nullptr;
    Check(sd_bus_message_new_method_call(bus, &message, destination, path, interface, member), "message");
    return Message(message);
}

struct Outcome {
    std::string name = "ok";  // or the error's
    std::string text;         // of the answer or the error; of an answer with records their number
};

Outcome Ask(sd_bus* bus, sd_bus_message* question) {
    sd_bus_error error{};
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call(bus, question, kPatienceMicroseconds, &error, &reply);
    const Message owner(reply);
    Outcome outcome;
    if (result < 0) {
        outcome.name = error.name != nullptr ? error.name : std::strerror(-result);
        outcome.text = error.message != nullptr ? error.message : "";
        sd_bus_error_free(&error);
        return outcome;
    }
    const std::string signature = sd_bus_message_get_signature(reply, 1);
    const char* text = nullptr;
    std::int32_t number = 0;
    if (signature == "s" && sd_bus_message_read_basic(reply, 's', &text) > 0) {
        outcome.text = text;
    } else if (signature == "i" && sd_bus_message_read_basic(reply, 'i', &number) > 0) {
        outcome.text = std::to_string(number);
    } else if (signature == "aa{ss}" && sd_bus_message_enter_container(reply, 'a', "a{ss}") > 0) {
        int count = 0;
        for (; sd_bus_message_at_end(reply, 0) == 0; ++count) {
            Check(sd_bus_message_skip(reply, "a{ss}"), "record");
        }
        outcome.text = std::to_string(count);
    }
    return outcome;
}

bool InputEnded(std::chrono::milliseconds wait) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, static_cast<int>(wait.count())) > 0;
}

int Call(std::vector<std::string> arguments) {
    const Bus bus = Connect();
    if (arguments.at(0).starts_with("as=")) {
        Check(sd_bus_request_name(bus.get(), arguments[0].c_str() + 3, 0), "name");
        arguments.erase(arguments.begin());
    }
    const std::string& interface = arguments.at(2);
    const Message message = NewCall(bus.get(), arguments.at(0).c_str(), arguments.at(1).c_str(),
                                    interface == "-" ? nullptr : interface.c_str(), arguments.at(3).c_str());
    const std::string signature = arguments.size() > 4 ? arguments[4] : "";
    for (std::size_t i = 0; i < signature.size(); ++i) {
        const std::string& text = arguments.at(5 + i);
        const bool isText = signature[i] == 's' || signature[i] == 'o';
        const int number = isText ? 0 : std::stoi(text);
        Check(sd_bus_message_append_basic(
                  message.get(), signature[i],
                  isText ? static_cast<const void*>(text.c_str()) : static_cast<const void*>(&number)),
              "argument");
    }
    const Outcome outcome = Ask(bus.get(), message.get());
    const bool hasText = outcome.name == "ok" && !outcome.text.empty();
    std::printf("%s%s%s\n", outcome.name.c_str(), hasText ? " " : "", hasText ? outcome.text.c_str() : "");
    return 0;
}

int Signal(const std::vector<std::string>& arguments) {
    const Bus bus = Connect();
    sd_bus_message* message = nullptr;
    Check(sd_bus_message_new_signal(bus.get(), &message, "/", "com.example.User", arguments.at(1).c_str()),
          "signal");
    const Message owner(message);
    Check(sd_bus_message_set_destination(message, arguments.at(0).c_str()), "destination");
    Check(sd_bus_send(bus.get(), message, nullptr), "send");
    Check(sd_bus_flush(bus.get()), "flush");
    return 0;
}

// The filter of a served bus; its user data is the text that every call is answered with.
int Arrived(sd_bus_message* message, void* text, sd_bus_error* /*error*/) {
    const char* interface = sd_bus_message_get_interface(message);
    if (interface == nullptr || std::strncmp(interface, "org.freedesktop.DBus", 20) != 0) {
        std::printf("%s\n", sd_bus_message_get_member(message));
        std::fflush(stdout);
    }
    return sd_bus_message_is_method_call(message, nullptr, nullptr) > 0
               ? sd_bus_reply_method_return(message, "s", static_cast<const char*>(text))
               : 0;
}

// Until the input ends.
void ServeCalls(sd_bus* bus) {
    while (!InputEnded(0ms)) {
        const int result = sd_bus_process(bus, nullptr);
        Check(result, "process");
        if (result == 0) {
            sd_bus_wait(bus, 20'000);
        }
    }
}

int Serve(const std::vector<std::string>& names) {
    std::string text = "answer";
    const Bus bus = Connect();
    Check(sd_bus_add_filter(bus.get(), nullptr, Arrived, text.data()), "filter");
    for (const std::string& name : names) {
        Check(sd_bus_request_name(bus.get(), name.c_str(), 0), name.c_str());
    }
    SayName(bus.get());
    ServeCalls(bus.get());
    return 0;
}

int Agent(std::string text) {
    const Bus bus = Connect();
    Check(sd_bus_add_filter(bus.get(), nullptr, Arrived, text.data()), "filter");
    const Message question = NewCall(bus.get(), kAgent, kAgentPath, kAgent, "SetURLExtractor");
    Check(sd_bus_message_append(question.get(), "o", "/extractor"), "path");
    const Outcome outcome = Ask(bus.get(), question.get());
    if (outcome.name != "ok") {
        throw std::runtime_error("not registered: " + outcome.name);
    }
    SayName(bus.get());
    ServeCalls(bus.get());
    return 0;
}

class Watch {
 public:
    explicit Watch(std::chrono::milliseconds pause) : pause_(pause) {}

    void run() {
        while (!InputEnded(pause_)) {
            try {
                if (!bus_ || sd_bus_is_open(bus_.get()) <= 0) {
                    bus_ = Connect();
                }
                ask(kAgent, kAgentPath);
                ask(kFinder, kFinderPath);
            } catch (const std::exception& e) {
                bus_ = nullptr;
                ++failures_[e.what()];
                std::this_thread::sleep_for(10ms);
            }
        }
    }

    void print() {
        std::sort(milliseconds_.begin(), milliseconds_.end());
        std::printf(
            "{\"answered\": %zu, \"median\": %.1f, \"p99\": %.1f, \"slowest\": %.1f, "
            "\"refusedByBus\": %d, \"failures\": {",
            milliseconds_.size(), at(0.5), at(0.99), at(1), refusedByBus_);
        const char* separator = "";
        for (const auto& [name, count] : failures_) {
            std::printf("%s\"%s\": %d", separator, name.c_str(), count);
            separator = ", ";
        }
        std::printf("}}\n");
    }

 private:
    void ask(const char* service, const char* path) {
        const auto start = Clock::now();
        Outcome outcome;
        do {
            const Message question = NewCall(bus_.get(), service, path, service, "Version");
            outcome = Ask(bus_.get(), question.get());
        } while (isBusFull(outcome) && !InputEnded(1ms));
        if (outcome.name == "ok") {
            milliseconds_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        } else {
            ++failures_[outcome.name];
        }
    }
    // The bus keeps at most 127 MiB for one receiver. What it refuses then no service has seen: asked again.
    bool isBusFull(const Outcome& outcome) {
        const bool isFull = outcome.text.find("full message queue") != std::string::npos;
        refusedByBus_ += isFull ? 1 : 0;
        return isFull;
    }
    double at(double part) const {
        return milliseconds_.empty() ? 0
                                     : milliseconds_[static_cast<std::size_t>(
                                           static_cast<double>(milliseconds_.size() - 1) * part)];
    }

    const std::chrono::milliseconds pause_;
    Bus bus_;
    std::vector<double> milliseconds_;
    std::map<std::string, int> failures_;  // by the error's name
    int refusedByBus_ = 0;
};

// COUNT:REST
std::pair<int, std::string> SplitCount(const std::string& text) {
    const auto colon = text.find(':');
    return {std::stoi(text.substr(0, colon)), text.substr(colon + 1)};
}

class Attack {
 public:
    void run(const std::vector<std::string>& steps) {
        SayName(bus_.get());
        for (const std::string& step : steps) {
            const auto colon = step.find(':');
            const std::string kind = step.substr(0, colon);
            const auto [count, rest] = SplitCount(step.substr(colon + 1));
            for (int i = 0; i < count; ++i) {
                send(kind, rest);
            }
        }
        std::printf("sent\n");
        std::fflush(stdout);
        while (!InputEnded(0ms)) {
            // The answers are taken from the bus, and nobody looks at them.
            if (sd_bus_process(bus_.get(), nullptr) == 0) {
                sd_bus_wait(bus_.get(), 20'000);
            }
        }
    }

 private:
    void send(const std::string& kind, const std::string& rest) {
        Message message;
        if (kind == "scan") {
            message = NewCall(bus_.get(), kFinder, kFinderPath, kFinder, "GetScanResult");
            Check(sd_bus_message_append(message.get(), "s", rest.c_str()), "path");
        } else if (kind == "text") {
            message = NewCall(bus_.get(), kFinder, kFinderPath, kFinder, "GetScanResult");
            const auto size = static_cast<std::size_t>(std::stoul(rest));
            char* space = nullptr;
            Check(sd_bus_message_append_string_space(message.get(), size, &space), "text");
            std::memset(space, 'x', size);
            // The bus lets only 128 answers of one peer be awaited.
            Check(sd_bus_message_set_expect_reply(message.get(), sent_ < kMostAwaited ? 1 : 0), "reply");
        } else if (kind == "records") {
            const auto [bytes, member] = SplitCount(rest);
            message = NewCall(bus_.get(), kFinder, kFinderPath, kFinder, member.c_str());
            appendRecords(message.get(), bytes);
        } else {
            throw std::runtime_error("unknown step " + kind);
        }
        std::uint64_t cookie = 0;  // without a place for it no answer would be awaited
        Check(sd_bus_send(bus_.get(), message.get(), &cookie), "send");
        ++sent_;
        // Nothing is kept here: the bus and the service have to hold it all.
        Check(sd_bus_flush(bus_.get()), "flush");
    }

    // Many small entries, which cost the most to read.
    static void appendRecords(sd_bus_message* message, int bytes) {
        constexpr int kBytesOfOneRecord = 64;
        Check(sd_bus_message_open_container(message, 'a', "a{ss}"), "array");
        for (int i = 0; i < bytes / kBytesOfOneRecord; ++i) {
            Check(sd_bus_message_append(message, "a{ss}", 2, "Name", "Classifier", "costUsd", "0.25"),
                  "record");
        }
        Check(sd_bus_message_close_container(message), "array");
    }

    static constexpr int kMostAwaited = 120;

    const Bus bus_ = Connect();
    int sent_ = 0;
};

int Run(const std::string& mode, const std::vector<std::string>& arguments) {
    if (mode == "call") {
        return Call(arguments);
    }
    if (mode == "signal") {
        return Signal(arguments);
    }
    if (mode == "serve") {
        return Serve(arguments);
    }
    if (mode == "agent") {
        return Agent(arguments.at(0));
    }
    if (mode == "watch") {
        Watch watch(std::chrono::milliseconds(std::stoi(arguments.at(0))));
        watch.run();
        watch.print();
        return 0;
    }
    if (mode == "attack") {
        Attack().run(arguments);
        return 0;
    }
    throw std::runtime_error("unknown mode " + mode);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 3) {
            throw std::runtime_error("no mode");
        }
        BecomeUser(static_cast<uid_t>(std::stoul(argv[1])));
        return Run(argv[2], std::vector<std::string>(argv + 3, argv + argc));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "BusUser: %s\n", e.what());
        return 1;
    }
}
