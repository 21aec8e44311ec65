// Stands before the bus library's sending functions and counts.

#include "CallCounter.h"

#include <dbus/dbus.h>
#include <dlfcn.h>

#include <atomic>

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
}
