// A peer of a bus that is written apart from the library that is tested: one thread, which waits. As a
// process of its own it can die, and what it takes is not ours.
//   BusPeer answer ADDRESS         says its name; Echo(s) -> s, Silent(), Die(), DieInReply(),
//                              Records(i mebibytes) -> aa{ss}
//   BusPeer flood ADDRESS NAME COUNT LARGE     sends so many messages of 1 and of 30 MiB to that name
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;

bool AppendRecords(sd_bus_message* message, std::size_t bytes) {
    const std::string value(1024, 'v');
    bool good = sd_bus_message_open_container(message, 'a', "a{ss}") >= 0;
    for (std::size_t written = 0; good && written < bytes; written += value.size()) {
        good = sd_bus_message_append(message, "a{ss}", 1, "key", value.c_str()) >= 0;
    }
    return good && sd_bus_message_close_container(message) >= 0;
}

int AnswerRecords(sd_bus_message* question) {
    int mebibytes = 0;
    sd_bus_message* answer = nullptr;
    sd_bus_message_read(question, "i", &mebibytes);
    if (sd_bus_message_new_method_return(question, &answer) >= 0 &&
        AppendRecords(answer, static_cast<std::size_t>(mebibytes) * kMebibyte)) {
        sd_bus_send(nullptr, answer, nullptr);
    }
    sd_bus_message_unref(answer);
    return 1;
}

int Answer(sd_bus_message* message, void* /*nothing*/, sd_bus_error* /*error*/) {
    const char* const name = sd_bus_message_get_member(message);
    const std::string_view member = name != nullptr ? name : "";
    if (member == "Echo") {
        const char* text = "";
        sd_bus_message_read(message, "s", &text);
        return sd_bus_reply_method_return(message, "s", text);
    }
    if (member == "Records") {
        return AnswerRecords(message);
    }
    if (member == "DieInReply") {
        // More than the socket takes at once.
        sd_bus_reply_method_return(message, "s", std::string(40 * 1024 * 1024, 'x').c_str());
    }
    if (member == "DieInReply" || member == "Die") {
        _exit(0);
    }
    return member == "Silent" ? 1 : 0;
}

bool SendRecords(sd_bus* bus, const char* destination, std::size_t bytes) {
    sd_bus_message* message = nullptr;
    const bool good = sd_bus_message_new_method_call(bus, &message, destination, "/a", "a.B", "Flood") >= 0 &&
                      AppendRecords(message, bytes) && sd_bus_send(bus, message, nullptr) >= 0 &&
                      sd_bus_flush(bus) >= 0;
    sd_bus_message_unref(message);
    return good;
}

bool Flood(sd_bus* bus, const char* destination, int count, int large) {
    bool good = true;
    for (int i = 0; good && i < count; ++i) {
        good = SendRecords(bus, destination, kMebibyte);
    }
    for (int i = 0; good && i < large; ++i) {
        good = SendRecords(bus, destination, 30 * kMebibyte);
    }
    return good;
}

}  // namespace

int main(int count, char** arguments) {
    sd_bus* bus = nullptr;
    const char* name = nullptr;
    if (count < 3 || sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, arguments[2]) < 0 ||
        sd_bus_set_bus_client(bus, 1) < 0 || sd_bus_start(bus) < 0 ||
        sd_bus_get_unique_name(bus, &name) < 0) {
        return 1;
    }
    if (std::string_view(arguments[1]) == "flood") {
        const bool good =
            count == 6 && Flood(bus, arguments[3], std::atoi(arguments[4]), std::atoi(arguments[5]));
        sd_bus_flush_close_unref(bus);
        return good ? 0 : 1;
    }
    sd_bus_add_filter(bus, nullptr, &Answer, nullptr);
    std::puts(name);
    std::fflush(stdout);
    for (int result = 0; result >= 0;) {
        result = sd_bus_process(bus, nullptr);
        if (result == 0) {
            result = sd_bus_wait(bus, UINT64_MAX);
        }
    }
    sd_bus_unref(bus);
    return 0;
}
