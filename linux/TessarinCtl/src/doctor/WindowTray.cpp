#include "doctor/WindowTray.h"

#include <fmt/format.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "common/ScopedAction.h"

namespace ctl {

namespace {

template <class T>
std::unique_ptr<T, decltype(&std::free)> Held(T* reply) {
    return {reply, &std::free};
}

}  // namespace

std::optional<bool> HasWindowTray() {
    const char* const display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0') {
        return std::nullopt;
    }
    int screen = 0;
    xcb_connection_t* const server = xcb_connect(nullptr, &screen);
    const cmn::ScopedAction end([&] { xcb_disconnect(server); });
    const std::string name = fmt::format("_NET_SYSTEM_TRAY_S{}", screen);
    const auto length = static_cast<std::uint16_t>(name.size());
    if (xcb_connection_has_error(server) != 0) {
        return std::nullopt;
    }
    const auto atom =
        Held(xcb_intern_atom_reply(server, xcb_intern_atom(server, 1, length, name.data()), nullptr));
    if (!atom || atom->atom == XCB_ATOM_NONE) {
        return atom ? std::optional(false) : std::nullopt;
    }
    const auto owner =
        Held(xcb_get_selection_owner_reply(server, xcb_get_selection_owner(server, atom->atom), nullptr));
    return owner ? std::optional(owner->owner != XCB_WINDOW_NONE) : std::nullopt;
}

}  // namespace ctl
