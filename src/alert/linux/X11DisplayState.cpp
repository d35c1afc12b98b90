// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/X11DisplayState.h"

#include "alert/linux/X11KeyboardGrabProbe.h"
#include "alert/linux/XcbReply.h"

#include <QSocketNotifier>

#include <cstdlib>

#include <xcb/dpms.h>
#include <xcb/screensaver.h>
#include <xcb/xcb.h>

namespace orvane {

X11DisplayState::X11DisplayState(const QByteArray& displayName, QObject* parent)
    : QObject(parent)
{
    xcb_connection_t* connection = xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (!screen) {
        xcb_disconnect(connection);
        return;
    }
    m_connection = connection;
    m_root = screen->root;
    m_grabProbe = std::make_unique<X11KeyboardGrabProbe>(m_connection);

    if (const auto* saver = xcb_get_extension_data(m_connection, &xcb_screensaver_id); saver && saver->present) {
        m_screenSaverEvent = saver->first_event;
        // Selected before the state is read, so that no change falls between the two.
        xcb_screensaver_select_input(m_connection, m_root, XCB_SCREENSAVER_EVENT_NOTIFY_MASK);
        const auto info = owned(
            xcb_screensaver_query_info_reply(m_connection, xcb_screensaver_query_info(m_connection, m_root), nullptr));
        m_screenSaverActive = info && info->state == XCB_SCREENSAVER_STATE_ON;
    }
    if (const auto* dpms = xcb_get_extension_data(m_connection, &xcb_dpms_id); dpms && dpms->present) {
        m_hasDpms = true;
    }
    xcb_flush(m_connection);

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11DisplayState::readEvents);
}

X11DisplayState::~X11DisplayState()
{
    m_notifier.reset();
    m_grabProbe.reset();
    if (m_connection) {
        xcb_disconnect(m_connection);
    }
}

bool X11DisplayState::areDisplaysPoweredDown()
{
    if (!m_connection || !m_hasDpms) {
        return false;
    }
    const auto info = owned(xcb_dpms_info_reply(m_connection, xcb_dpms_info(m_connection), nullptr));
    handleQueuedEvents();
    return info && info->state != 0 && info->power_level != XCB_DPMS_DPMS_MODE_ON;
}

bool X11DisplayState::isKeyboardGrabbed()
{
    if (!m_grabProbe) {
        return false;
    }
    const bool grabbed = m_grabProbe->anotherClientHoldsKeyboard();
    handleQueuedEvents();
    return grabbed;
}

void X11DisplayState::setWatchesTopLevelWindows(bool watches)
{
    if (!m_connection || watches == m_watchesTopLevelWindows) {
        return;
    }
    m_watchesTopLevelWindows = watches;
    // Event masks are per client: this selects for this connection only and leaves the window manager's alone.
    const std::uint32_t mask = watches ? XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY : XCB_EVENT_MASK_NO_EVENT;
    xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(m_connection);
}

void X11DisplayState::readEvents()
{
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
        handle(event);
        std::free(event);
    }
    if (xcb_connection_has_error(m_connection) != 0) {
        // The server went away: it can tell nothing any more, and a dead socket would wake the loop for ever.
        m_notifier->setEnabled(false);
        if (m_screenSaverActive) {
            m_screenSaverActive = false;
            Q_EMIT screenSaverActiveChanged(false);
        }
    }
}

void X11DisplayState::handleQueuedEvents()
{
    // A reply can arrive behind events that xcb then keeps queued, which the socket will not signal again. They are
    // handled from the event loop, not inside the caller's question.
    QMetaObject::invokeMethod(this, &X11DisplayState::readEvents, Qt::QueuedConnection);
}

void X11DisplayState::handle(const void* raw)
{
    const auto* event = static_cast<const xcb_generic_event_t*>(raw);
    const std::uint8_t type = event->response_type & 0x7f;
    if (m_screenSaverEvent != 0 && type == m_screenSaverEvent + XCB_SCREENSAVER_NOTIFY) {
        const auto* notify = static_cast<const xcb_screensaver_notify_event_t*>(raw);
        const bool active = notify->state != XCB_SCREENSAVER_STATE_OFF;
        if (active != m_screenSaverActive) {
            m_screenSaverActive = active;
            Q_EMIT screenSaverActiveChanged(active);
        }
        return;
    }
    if (!m_watchesTopLevelWindows) {
        return;
    }
    if ((type == XCB_UNMAP_NOTIFY && static_cast<const xcb_unmap_notify_event_t*>(raw)->event == m_root) ||
        (type == XCB_DESTROY_NOTIFY && static_cast<const xcb_destroy_notify_event_t*>(raw)->event == m_root)) {
        Q_EMIT topLevelWindowWentAway();
    }
}

} // namespace orvane
