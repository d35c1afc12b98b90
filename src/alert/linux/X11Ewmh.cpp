// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/X11Ewmh.h"

#include "alert/linux/XcbReply.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace orvane {

namespace {

constexpr std::array<const char*, std::size_t(X11Ewmh::Atom::count)> atomNames{
    "_NET_ACTIVE_WINDOW",
    "_NET_WM_STATE",
    "_NET_WM_STATE_ABOVE",
    "_NET_WM_STATE_STICKY",
    "_NET_WM_STATE_SKIP_TASKBAR",
    "_NET_WM_STATE_SKIP_PAGER",
    "_NET_WM_DESKTOP",
    "_NET_STARTUP_ID",
    "UTF8_STRING",
    "_NET_STARTUP_INFO_BEGIN",
    "_NET_STARTUP_INFO",
};

/// `_NET_WM_DESKTOP` value meaning "on every desktop".
constexpr std::uint32_t allDesktops = 0xFFFFFFFF;
/// Source indication of an activation request sent on the user's behalf by a pager or taskbar.
constexpr std::uint32_t pagerSource = 2;
/// Source indication of an application's own activation request.
constexpr std::uint32_t applicationSource = 1;

/// The X server time in a startup id ("…_TIME<time>"); the current time when it has none.
xcb_timestamp_t launchTime(const QByteArray& startupId)
{
    const qsizetype at = startupId.lastIndexOf("_TIME");
    if (at < 0) {
        return XCB_CURRENT_TIME;
    }
    bool ok = false;
    const auto time = startupId.mid(at + 5).toULong(&ok);
    return ok ? xcb_timestamp_t(time) : xcb_timestamp_t(XCB_CURRENT_TIME);
}

} // namespace

X11Ewmh::X11Ewmh(xcb_connection_t* connection)
    : m_connection(connection)
{
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    std::array<xcb_intern_atom_cookie_t, atomNames.size()> cookies{};
    for (std::size_t index = 0; index < atomNames.size(); ++index) {
        cookies[index] =
            xcb_intern_atom(m_connection, 0, std::uint16_t(std::strlen(atomNames[index])), atomNames[index]);
    }
    for (std::size_t index = 0; index < atomNames.size(); ++index) {
        xcb_generic_error_t* error = nullptr;
        const auto reply = owned(xcb_intern_atom_reply(m_connection, cookies[index], &error));
        std::free(error);
        m_atoms[index] = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    }
}

std::optional<xcb_window_t> X11Ewmh::activeWindow() const
{
    const auto cookie = xcb_get_property(m_connection, 0, m_root, atom(Atom::netActiveWindow), XCB_ATOM_WINDOW, 0, 1);
    xcb_generic_error_t* error = nullptr;
    const auto reply = owned(xcb_get_property_reply(m_connection, cookie, &error));
    std::free(error);
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < int(sizeof(xcb_window_t))) {
        return std::nullopt;
    }
    const xcb_window_t window = *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
    if (window == XCB_WINDOW_NONE) {
        return std::nullopt;
    }
    return window;
}

std::optional<QRect> X11Ewmh::frameInRoot(xcb_window_t window) const
{
    // Both requests go out before either answer is awaited: one round trip.
    const auto geometryCookie = xcb_get_geometry(m_connection, window);
    const auto originCookie = xcb_translate_coordinates(m_connection, window, m_root, 0, 0);
    xcb_generic_error_t* geometryError = nullptr;
    xcb_generic_error_t* originError = nullptr;
    const auto geometry = owned(xcb_get_geometry_reply(m_connection, geometryCookie, &geometryError));
    const auto origin = owned(xcb_translate_coordinates_reply(m_connection, originCookie, &originError));
    std::free(geometryError);
    std::free(originError);
    if (!geometry || !origin) {
        return std::nullopt;
    }
    return QRect(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
}

bool X11Ewmh::exists(xcb_window_t window) const
{
    xcb_generic_error_t* error = nullptr;
    const auto reply =
        owned(xcb_get_window_attributes_reply(m_connection, xcb_get_window_attributes(m_connection, window), &error));
    std::free(error);
    return reply != nullptr;
}

xcb_window_t X11Ewmh::inputFocus() const
{
    xcb_generic_error_t* error = nullptr;
    const auto reply = owned(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), &error));
    std::free(error);
    return reply ? reply->focus : xcb_window_t(XCB_WINDOW_NONE);
}

void X11Ewmh::requestActivation(xcb_window_t window)
{
    sendActiveWindowRequest(window, pagerSource, XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

void X11Ewmh::sendActiveWindowRequest(xcb_window_t window, std::uint32_t source, xcb_timestamp_t time)
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = atom(Atom::netActiveWindow);
    event.data.data32[0] = source;
    event.data.data32[1] = time;
    event.data.data32[2] = XCB_WINDOW_NONE;
    xcb_send_event(m_connection, 0, m_root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
}

void X11Ewmh::activateForLaunch(xcb_window_t window, const QByteArray& startupId)
{
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, window, atom(Atom::netStartupId), atom(Atom::utf8String),
                        8, std::uint32_t(startupId.size()), startupId.constData());

    sendActiveWindowRequest(window, applicationSource, launchTime(startupId));

    // "remove: ID=…" in 20-byte pieces, the first as _NET_STARTUP_INFO_BEGIN, the rest as _NET_STARTUP_INFO, the
    // text ending with its NUL; sent to the root for whoever shows launch feedback.
    QByteArray message = "remove: ID=\"" + QByteArray(startupId).replace('\\', "\\\\").replace('"', "\\\"") + "\"";
    message.append('\0');
    for (qsizetype offset = 0; offset < message.size(); offset += 20) {
        xcb_client_message_event_t piece{};
        piece.response_type = XCB_CLIENT_MESSAGE;
        piece.format = 8;
        piece.window = m_root;
        piece.type = atom(offset == 0 ? Atom::netStartupInfoBegin : Atom::netStartupInfo);
        std::memcpy(piece.data.data8, message.constData() + offset,
                    std::size_t(std::min<qsizetype>(20, message.size() - offset)));
        xcb_send_event(m_connection, 0, m_root, XCB_EVENT_MASK_PROPERTY_CHANGE, reinterpret_cast<const char*>(&piece));
    }
    xcb_flush(m_connection);
}

void X11Ewmh::setPanelProperties(xcb_window_t window)
{
    // Qt merges its own states into this list when it maps the window, so they survive a show. Not "full screen": the
    // panel covers its display by its geometry, and weston's XWayland window manager aborts on an unmanaged window
    // that claims the full-screen state.
    const std::array<xcb_atom_t, 4> states{atom(Atom::netWmStateAbove), atom(Atom::netWmStateSticky),
                                           atom(Atom::netWmStateSkipTaskbar), atom(Atom::netWmStateSkipPager)};
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, window, atom(Atom::netWmState), XCB_ATOM_ATOM, 32,
                        std::uint32_t(states.size()), states.data());
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, window, atom(Atom::netWmDesktop), XCB_ATOM_CARDINAL, 32, 1,
                        &allDesktops);
    xcb_flush(m_connection);
}

void X11Ewmh::selectVisibilityChanges(xcb_window_t window)
{
    xcb_generic_error_t* error = nullptr;
    const auto attributes =
        owned(xcb_get_window_attributes_reply(m_connection, xcb_get_window_attributes(m_connection, window), &error));
    std::free(error);
    if (!attributes) {
        return;
    }
    const std::uint32_t mask = attributes->your_event_mask | XCB_EVENT_MASK_VISIBILITY_CHANGE;
    xcb_change_window_attributes(m_connection, window, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(m_connection);
}

void X11Ewmh::raise(xcb_window_t window)
{
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(m_connection, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    xcb_flush(m_connection);
}

} // namespace orvane
