// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "support/Patience.h"

#include <QProcess>
#include <QString>

#include <cstdlib>
#include <xcb/xcb.h>

/// A bare X server of the test's own (no window manager), on a display number it picks itself.
class Xvfb {
public:
    Xvfb()
    {
        // -displayfd 1: Xvfb prints the display number once it accepts clients.
        m_process.start(QStringLiteral("Xvfb"),
                        {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                         QStringLiteral("0"), QStringLiteral("1280x800x24"), QStringLiteral("-nolisten"),
                         QStringLiteral("tcp")});
        if (m_process.waitForReadyRead(patience)) {
            m_display = ":" + m_process.readLine().trimmed();
        }
    }
    ~Xvfb()
    {
        m_process.terminate();
        m_process.waitForFinished();
    }

    /// Empty when the server did not start.
    const QByteArray& display() const { return m_display; }

private:
    QProcess m_process;
    QByteArray m_display;
};

/// Another X client with a mapped window of its own, as a password dialog or a screen locker has.
class X11Client {
public:
    explicit X11Client(const QByteArray& display)
        : m_connection(xcb_connect(display.constData(), nullptr))
    {
        if (xcb_connection_has_error(m_connection) != 0) {
            return;
        }
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        m_window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, m_screen->root, 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, m_screen->root_visual, 0, nullptr);
        xcb_map_window(m_connection, m_window);
        sync();
    }
    ~X11Client() { xcb_disconnect(m_connection); }
    X11Client(const X11Client&) = delete;
    X11Client& operator=(const X11Client&) = delete;

    xcb_connection_t* connection() const { return m_connection; }
    xcb_window_t root() const { return m_screen ? m_screen->root : 0; }

    /// Asks for an active keyboard grab and returns the server's answer (an xcb_grab_status_t).
    int grabKeyboard()
    {
        const auto cookie =
            xcb_grab_keyboard(m_connection, 0, m_window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        auto* reply = xcb_grab_keyboard_reply(m_connection, cookie, nullptr);
        const int status = reply ? reply->status : -1;
        std::free(reply);
        return status;
    }
    void ungrabKeyboard()
    {
        xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
        sync();
    }
    /// Ends as a locker does: its grab goes with its window.
    void destroyWindow()
    {
        xcb_destroy_window(m_connection, m_window);
        sync();
    }
    /// Turns the server's screen saver on or off, as DPMS and `xset s activate` do.
    void forceScreenSaver(bool on)
    {
        xcb_force_screen_saver(m_connection, on ? XCB_SCREEN_SAVER_ACTIVE : XCB_SCREEN_SAVER_RESET);
        sync();
    }
    /// The events every client together selects on `window`.
    std::uint32_t allEventMasks(xcb_window_t window)
    {
        auto* reply =
            xcb_get_window_attributes_reply(m_connection, xcb_get_window_attributes(m_connection, window), nullptr);
        const std::uint32_t masks = reply ? reply->all_event_masks : 0;
        std::free(reply);
        return masks;
    }

private:
    void sync() { std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr)); }

    xcb_connection_t* m_connection;
    const xcb_screen_t* m_screen = nullptr;
    xcb_window_t m_window = 0;
};
