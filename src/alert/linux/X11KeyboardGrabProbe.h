// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>

#include <cstdint>

struct xcb_connection_t;

namespace orvane {

/// Tells whether another X client holds an active keyboard grab, as password prompts, polkit agents and screen
/// lockers do while the user types a secret. It never takes the keyboard itself, so typing is never disturbed.
///
/// The probe asks the server for a keyboard grab on a window of its own that is never mapped. The X server checks
/// a grab request in a fixed order (dix `GrabDevice`, as the core protocol describes GrabKeyboard): first whether
/// another client holds the keyboard (AlreadyGrabbed), then whether the window is viewable (GrabNotViewable).
/// With an unmapped window the request therefore cannot succeed: it answers AlreadyGrabbed when someone else holds
/// the keyboard and GrabNotViewable otherwise. Should a server ever grant it anyway, the probe lets go at once in
/// the same flush and reports false.
///
/// Each probe costs one round trip to the X server, which waits on the calling thread (well under a millisecond on
/// a local display). On a platform that is not X11 (Wayland, offscreen) the probe always answers false: Wayland
/// gives no way to see another client's keyboard focus.
class X11KeyboardGrabProbe {
public:
    /// Uses Qt's own X connection when the application runs on the xcb platform; otherwise never detects a grab.
    /// A grab that Qt itself holds (an open menu) is this process's own and does not count.
    X11KeyboardGrabProbe();
    /// Opens a connection of its own to `displayName` (as in $DISPLAY; empty means $DISPLAY).
    explicit X11KeyboardGrabProbe(const QByteArray& displayName);
    /// Asks over `connection`, which must outlive the probe.
    explicit X11KeyboardGrabProbe(xcb_connection_t* connection);
    ~X11KeyboardGrabProbe();
    X11KeyboardGrabProbe(const X11KeyboardGrabProbe&) = delete;
    X11KeyboardGrabProbe& operator=(const X11KeyboardGrabProbe&) = delete;

    /// Whether another client holds an active keyboard grab right now.
    bool anotherClientHoldsKeyboard();

    /// Whether the probe has an X connection to ask; without one it always answers false.
    bool isConnected() const { return m_connection != nullptr; }

private:
    xcb_connection_t* m_connection = nullptr;
    bool m_ownsConnection = false;
    /// The unmapped window the grab is asked for, created on first use; 0 before.
    std::uint32_t m_window = 0;
};

} // namespace orvane
