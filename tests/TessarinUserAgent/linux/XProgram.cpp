// A client of an X server in a process of its own, for the tests: XProgram DISPLAY INSTANCE CLASS. Shows one
// window that tells its process as toolkits do, prints the window's number, and ends with its input.

#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <iostream>
#include <string>

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    xcb_connection_t* const connection = xcb_connect(argv[1], nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        return 1;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const xcb_window_t window = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, root, 0, 0, 100, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
    const std::string wmClass = std::string(argv[2]) + '\0' + argv[3] + '\0';
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(wmClass.size()), wmClass.data());
    const std::string name = "_NET_WM_PID";
    xcb_intern_atom_reply_t* const atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.data()),
        nullptr);
    const auto pid = static_cast<std::uint32_t>(::getpid());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, atom->atom, XCB_ATOM_CARDINAL, 32, 1,
                        &pid);
    std::free(atom);
    xcb_map_window(connection, window);
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    std::cout << window << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
    xcb_disconnect(connection);
    return 0;
}
