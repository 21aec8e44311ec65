#include "interface/StartupNotification.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace useragent {

namespace {

constexpr const char* kWaylandToken = "XDG_ACTIVATION_TOKEN";

xcb_connection_t* X11Connection() {
    auto* const native = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return native != nullptr ? native->connection() : nullptr;
}

xcb_atom_t Atom(xcb_connection_t* connection, std::string_view name) {
    const auto request = xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, request, nullptr), &std::free);
    return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

void SetStartupId(xcb_connection_t* connection, WId window, const std::string& id) {
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, static_cast<xcb_window_t>(window),
                        Atom(connection, "_NET_STARTUP_ID"), Atom(connection, "UTF8_STRING"), 8,
                        static_cast<std::uint32_t>(id.size()), id.data());
}

// Tells all that watch for it that the launch with this id is complete: a text in messages of 20 bytes.
void EndStartup(xcb_connection_t* connection, WId window, const std::string& id) {
    std::string quoted;
    for (const char c : id) {
        quoted += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    const std::string message = "remove: ID=\"" + quoted + "\"";
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 8;
    event.window = static_cast<xcb_window_t>(window);
    event.type = Atom(connection, "_NET_STARTUP_INFO_BEGIN");
    for (std::size_t start = 0; start <= message.size(); start += sizeof event.data.data8) {
        std::fill(std::begin(event.data.data8), std::end(event.data.data8), std::uint8_t{0});
        message.copy(reinterpret_cast<char*>(event.data.data8), sizeof event.data.data8, start);
        xcb_send_event(connection, 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
        event.type = Atom(connection, "_NET_STARTUP_INFO");
    }
    xcb_flush(connection);
}

}  // namespace

void ShowActivated(QWidget& window, const std::string& token) {
    xcb_connection_t* const x11 = X11Connection();
    const bool isWayland = QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    if (x11 != nullptr && !token.empty()) {
        SetStartupId(x11, window.winId(), token);
    } else if (isWayland && !token.empty()) {
        // The toolkit takes it from nowhere but the environment.
        qputenv(kWaylandToken, QByteArray::fromStdString(token));
    }
    window.show();
    window.raise();
    window.activateWindow();
    if (x11 != nullptr && !token.empty()) {
        EndStartup(x11, window.winId(), token);
    } else if (isWayland && !token.empty()) {
        qunsetenv(kWaylandToken);
    }
}

}  // namespace useragent
