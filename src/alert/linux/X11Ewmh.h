// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QRect>

#include <array>
#include <optional>
#include <xcb/xcb.h>

namespace orvane {

/// The few EWMH and core X11 requests the alert's window system makes, on an X connection it borrows (Qt's own).
///
/// Every query is one round trip whose errors come back with its reply, so a window that vanished between two calls
/// shows up as an absent answer, never as an error in Qt's event queue. The atoms are interned once, all in one
/// round trip.
class X11Ewmh {
public:
    enum class Atom : std::size_t {
        netActiveWindow,
        netWmState,
        netWmStateAbove,
        netWmStateSticky,
        netWmStateSkipTaskbar,
        netWmStateSkipPager,
        netWmDesktop,
        netStartupId,
        utf8String,
        netStartupInfoBegin,
        netStartupInfo,
        count,
    };

    /// `connection` must outlive this object.
    explicit X11Ewmh(xcb_connection_t* connection);

    xcb_connection_t* connection() const { return m_connection; }
    xcb_window_t root() const { return m_root; }
    xcb_atom_t atom(Atom which) const { return m_atoms[std::size_t(which)]; }

    /// The window the window manager reports as active (`_NET_ACTIVE_WINDOW` on the root); absent when none is.
    std::optional<xcb_window_t> activeWindow() const;
    /// Where `window` lies, in root (desktop) pixels; absent when it no longer exists.
    std::optional<QRect> frameInRoot(xcb_window_t window) const;
    /// Whether `window` still exists.
    bool exists(xcb_window_t window) const;
    /// The window holding the keyboard focus right now (the core protocol's answer, not the window manager's).
    xcb_window_t inputFocus() const;

    /// Asks the window manager to activate `window`, as a pager would: window managers honour pager requests
    /// without their focus-stealing checks, which is what giving focus back to the user's previous window needs.
    void requestActivation(xcb_window_t window);
    /// Activates `window` for the launch whose X startup id is `startupId`, as the startup-notification protocol
    /// has it: the window names the launch, the request carries the launch's time (window managers that prevent
    /// focus stealing accept that), and the launch is declared complete so that its busy feedback ends.
    void activateForLaunch(xcb_window_t window, const QByteArray& startupId);
    /// Marks an unmapped `window` as above, sticky and out of taskbars and pagers, on every desktop.
    void setPanelProperties(xcb_window_t window);
    /// Adds VisibilityNotify to the events `window` reports, keeping those Qt asked for.
    void selectVisibilityChanges(xcb_window_t window);
    /// Puts `window` on top of its siblings.
    void raise(xcb_window_t window);

private:
    /// `_NET_ACTIVE_WINDOW` for `window` from `source` (1 an application, 2 a pager) at `time`; not flushed.
    void sendActiveWindowRequest(xcb_window_t window, std::uint32_t source, xcb_timestamp_t time);

    xcb_connection_t* m_connection;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    std::array<xcb_atom_t, std::size_t(Atom::count)> m_atoms{};
};

} // namespace orvane
