// Stands before the sending functions of both bus libraries and counts.

#include "CallCounter.h"

#include <dbus/dbus.h>
#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstdint>

namespace {

std::atomic<unsigned long> g_calls{0};

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

unsigned long CountedCalls() {
    return g_calls;
}

extern "C" {

dbus_bool_t dbus_connection_send_with_reply(DBusConnection* connection, DBusMessage* message,
                                            DBusPendingCall** pending, int timeout) {
    static auto* const next =
        Next<decltype(dbus_connection_send_with_reply)>("dbus_connection_send_with_reply");
    ++g_calls;
    return next(connection, message, pending, timeout);
}

DBusMessage* dbus_connection_send_with_reply_and_block(DBusConnection* connection, DBusMessage* message,
                                                       int timeout, DBusError* error) {
    static auto* const next = Next<decltype(dbus_connection_send_with_reply_and_block)>(
        "dbus_connection_send_with_reply_and_block");
    ++g_calls;
    return next(connection, message, timeout, error);
}

dbus_bool_t dbus_connection_send(DBusConnection* connection, DBusMessage* message, dbus_uint32_t* serial) {
    static auto* const next = Next<decltype(dbus_connection_send)>("dbus_connection_send");
    ++g_calls;
    return next(connection, message, serial);
}

int sd_bus_call_async(sd_bus* bus, sd_bus_slot** slot, sd_bus_message* call,
                      sd_bus_message_handler_t callback, void* userdata, std::uint64_t microseconds) {
    static auto* const next = Next<decltype(sd_bus_call_async)>("sd_bus_call_async");
    ++g_calls;
    return next(bus, slot, call, callback, userdata, microseconds);
}
}
