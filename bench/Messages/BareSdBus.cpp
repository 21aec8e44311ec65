#include "BareSdBus.h"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Records.h"
#include "ServiceProcess.h"

namespace bare_sd_bus {

namespace {

constexpr const char* kName = ServiceProcess::kBareSdBusName;
constexpr const char* kPath = ServiceProcess::kBarePath;
constexpr std::uint64_t kPatienceMicroseconds = 20'000'000;

int Check(int result, const char* what) {
    if (result < 0) {
        std::fprintf(stderr, "%s: %s\n", what, std::strerror(-result));
        std::exit(1);
    }
    return result;
}

struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

void Write(sd_bus_message* message, const std::vector<cmn::ScanRecord>& records) {
    Check(sd_bus_message_open_container(message, 'a', "a{ss}"), "records");
    for (const cmn::ScanRecord& record : records) {
        Check(sd_bus_message_open_container(message, 'a', "{ss}"), "record");
        for (const auto& [key, value] : record) {
            Check(sd_bus_message_open_container(message, 'e', "ss"), "pair");
            Check(sd_bus_message_append_basic(message, 's', key.c_str()), "key");
            Check(sd_bus_message_append_basic(message, 's', value.c_str()), "value");
            Check(sd_bus_message_close_container(message), "pair");
        }
        Check(sd_bus_message_close_container(message), "record");
    }
    Check(sd_bus_message_close_container(message), "records");
}

std::vector<cmn::ScanRecord> Read(sd_bus_message* message) {
    std::vector<cmn::ScanRecord> records;
    Check(sd_bus_message_enter_container(message, 'a', "a{ss}"), "records");
    while (Check(sd_bus_message_enter_container(message, 'a', "{ss}"), "record") > 0) {
        cmn::ScanRecord& record = records.emplace_back();
        while (Check(sd_bus_message_enter_container(message, 'e', "ss"), "pair") > 0) {
            const char* key = nullptr;
            const char* value = nullptr;
            Check(sd_bus_message_read_basic(message, 's', &key), "key");
            Check(sd_bus_message_read_basic(message, 's', &value), "value");
            record.emplace_hint(record.end(), key, value);
            Check(sd_bus_message_exit_container(message), "pair");
        }
        Check(sd_bus_message_exit_container(message), "record");
    }
    Check(sd_bus_message_exit_container(message), "records");
    return records;
}

// The reply; null when none came. `path` may be null.
Message Call(sd_bus* bus, const char* member, const char* path) {
    sd_bus_message* question = nullptr;
    Check(sd_bus_message_new_method_call(bus, &question, kName, kPath, kName, member), "question");
    const Message owner(question);
    if (path != nullptr) {
        Check(sd_bus_message_append_basic(question, 's', path), "path");
    }
    sd_bus_message* reply = nullptr;
    sd_bus_call(bus, question, kPatienceMicroseconds, nullptr, &reply);
    return Message(reply);
}

struct Service {
    const std::map<int, std::vector<cmn::ScanRecord>> records = MakeAllRecords();
};

int Answer(sd_bus_message* question, void* service, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_call(question, kName, "Version") > 0) {
        return Check(sd_bus_reply_method_return(question, "s", "1.0"), "reply");
    }
    if (sd_bus_message_is_method_call(question, kName, "GetScanResult") <= 0) {
        return 0;
    }
    const char* path = nullptr;
    Check(sd_bus_message_read_basic(question, 's', &path), "path");
    // Made for this question, as those of our scanner are, and let go of when they are sent.
    const std::vector<cmn::ScanRecord> records =
        static_cast<const Service*>(service)->records.at(std::atoi(path));
    sd_bus_message* reply = nullptr;
    Check(sd_bus_message_new_method_return(question, &reply), "reply");
    const Message owner(reply);
    Write(reply, records);
    return Check(sd_bus_send(nullptr, reply, nullptr), "reply");
}

sd_bus* Open() {
    sd_bus* bus = nullptr;
    Check(sd_bus_open_user(&bus), "session bus");
    return bus;
}

}  // namespace

void Client::Deleter::operator()(sd_bus* bus) const {
    sd_bus_close_unref(bus);
}

Client::Client() : bus_(Open()) {}

bool Client::version() {
    const Message reply = Call(bus_.get(), "Version", nullptr);
    const char* text = nullptr;
    return reply && sd_bus_message_read_basic(reply.get(), 's', &text) > 0 && std::strcmp(text, "1.0") == 0;
}

bool Client::ask(int count) {
    if (!version()) {
        return false;
    }
    const Message reply = Call(bus_.get(), "GetScanResult", std::to_string(count).c_str());
    return reply && Read(reply.get()).size() == static_cast<std::size_t>(count);
}

int RunService(const char* name) {
    Service service;
    GiveFreeMemoryBack();
    sd_bus* const bus = Open();
    Check(sd_bus_add_filter(bus, nullptr, Answer, &service), "filter");
    Check(sd_bus_request_name(bus, name, 0), "name");
    for (;;) {
        if (Check(sd_bus_process(bus, nullptr), "process") == 0) {
            Check(sd_bus_wait(bus, UINT64_MAX), "wait");
        }
    }
}

}  // namespace bare_sd_bus
