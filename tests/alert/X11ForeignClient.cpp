// SPDX-License-Identifier: GPL-3.0-or-later
// Another application for the X11 alert tests, in plain xcb so that it starts in a blink:
//
//   fullscreen  a full-screen window (as a video call or a presentation has), which openbox focuses
//   grab        a small window holding an active keyboard grab, as a password prompt does
//   cover       an unmanaged window over the whole screen, stacked on top when it appears
//
// Once its window is mapped (and, for grab, the keyboard is held) it prints the window's id and a newline, then
// stays until it is ended.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>
#include <xcb/xcb.h>

namespace {

xcb_atom_t intern(xcb_connection_t* connection, const char* name)
{
    auto* reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, std::uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return atom;
}

void waitForMap(xcb_connection_t* connection)
{
    while (xcb_generic_event_t* event = xcb_wait_for_event(connection)) {
        const bool mapped = (event->response_type & 0x7f) == XCB_MAP_NOTIFY;
        std::free(event);
        if (mapped) {
            return;
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view mode = argc > 1 ? argv[1] : "fullscreen";
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        return 1;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_window_t window = xcb_generate_id(connection);
    const bool cover = mode == "cover";
    const std::uint32_t values[] = {cover ? 0xaa3333u : 0x3366ccu, cover ? 1u : 0u, XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0,
                      mode == "grab" ? 300 : screen->width_in_pixels, mode == "grab" ? 120 : screen->height_in_pixels,
                      0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    const std::string title = "Foreign " + std::string(mode);
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                        std::uint32_t(title.size()), title.data());
    if (mode == "fullscreen") {
        const xcb_atom_t fullscreen = intern(connection, "_NET_WM_STATE_FULLSCREEN");
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, intern(connection, "_NET_WM_STATE"),
                            XCB_ATOM_ATOM, 32, 1, &fullscreen);
    }
    xcb_map_window(connection, window);
    xcb_flush(connection);
    waitForMap(connection);

    if (mode == "grab") {
        // The window manager may still be busy with the new window; a password prompt would retry as well.
        bool grabbed = false;
        for (int attempt = 0; attempt < 200 && !grabbed; ++attempt) {
            auto* reply = xcb_grab_keyboard_reply(
                connection,
                xcb_grab_keyboard(connection, 0, window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                nullptr);
            grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
            std::free(reply);
            if (!grabbed) {
                std::this_thread::sleep_for(std::chrono::milliseconds(25));
            }
        }
        if (!grabbed) {
            return 2;
        }
    }
    std::printf("%u\n", window);
    std::fflush(stdout);

    while (xcb_generic_event_t* event = xcb_wait_for_event(connection)) {
        std::free(event);
    }
    xcb_disconnect(connection);
    return 0;
}
