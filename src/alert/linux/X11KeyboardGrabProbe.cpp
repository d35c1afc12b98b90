// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/X11KeyboardGrabProbe.h"

#include "alert/linux/XcbReply.h"

#include <QGuiApplication>

#include <xcb/xcb.h>

namespace orvane {

X11KeyboardGrabProbe::X11KeyboardGrabProbe()
{
#if QT_CONFIG(xcb)
    if (const auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr) {
        m_connection = x11->connection();
    }
#endif
}

X11KeyboardGrabProbe::X11KeyboardGrabProbe(const QByteArray& displayName)
{
    xcb_connection_t* connection = xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return;
    }
    m_connection = connection;
    m_ownsConnection = true;
}

X11KeyboardGrabProbe::X11KeyboardGrabProbe(xcb_connection_t* connection)
    : m_connection(connection)
{
}

X11KeyboardGrabProbe::~X11KeyboardGrabProbe()
{
    if (!m_connection) {
        return;
    }
    if (m_ownsConnection) {
        xcb_disconnect(m_connection);
    } else if (m_window != 0) {
        xcb_destroy_window(m_connection, m_window);
        xcb_flush(m_connection);
    }
}

bool X11KeyboardGrabProbe::anotherClientHoldsKeyboard()
{
    if (!m_connection || xcb_connection_has_error(m_connection) != 0) {
        return false;
    }
    if (m_window == 0) {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        if (!screen) {
            return false;
        }
        // Input-only, 1×1 and never mapped: it never shows, and a grab on it can never be granted.
        m_window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen->root, -1, -1, 1, 1, 0,
                          XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    }
    const auto cookie = xcb_grab_keyboard(m_connection, 0 /* owner_events */, m_window, XCB_CURRENT_TIME,
                                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    const auto reply = owned(xcb_grab_keyboard_reply(m_connection, cookie, nullptr));
    if (!reply) {
        return false;
    }
    const auto status = reply->status;
    if (status == XCB_GRAB_STATUS_SUCCESS) {
        // Not expected from any server (see the class comment); never keep the keyboard.
        xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
        xcb_flush(m_connection);
        return false;
    }
    return status == XCB_GRAB_STATUS_ALREADY_GRABBED;
}

} // namespace orvane
