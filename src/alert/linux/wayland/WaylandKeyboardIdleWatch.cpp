// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/wayland/WaylandKeyboardIdleWatch.h"

#include "alert/linux/wayland/WaylandConnection.h"
#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"

#include <wayland-client.h>

namespace orvane {

WaylandKeyboardIdleWatch::WaylandKeyboardIdleWatch(WaylandConnection& connection, QObject* parent)
    : KeyboardIdleWatch(parent)
    , m_connection(connection)
{
    connect(&m_connection, &WaylandConnection::disconnected, this, [this] {
        m_notification = nullptr;
        m_kdeTimeout = nullptr;
    });
}

WaylandKeyboardIdleWatch::~WaylandKeyboardIdleWatch()
{
    stopWatching();
}

bool WaylandKeyboardIdleWatch::canWatch() const
{
    return m_connection.seat() && (m_connection.idleNotifier() || m_connection.kdeIdle());
}

void WaylandKeyboardIdleWatch::startWatching()
{
    const auto timeout = std::uint32_t(idleThreshold.count());
    if (auto* notifier = m_connection.idleNotifier()) {
        m_notification = ext_idle_notifier_v1_get_idle_notification(notifier, timeout, m_connection.seat());
        static const ext_idle_notification_v1_listener listener = {
            .idled = [](void* data, ext_idle_notification_v1*) { static_cast<WaylandKeyboardIdleWatch*>(data)->setIdle(true); },
            .resumed = [](void* data, ext_idle_notification_v1*) {
                static_cast<WaylandKeyboardIdleWatch*>(data)->setIdle(false);
            },
        };
        ext_idle_notification_v1_add_listener(m_notification, &listener, this);
    } else if (auto* idle = m_connection.kdeIdle()) {
        m_kdeTimeout = org_kde_kwin_idle_get_idle_timeout(idle, m_connection.seat(), timeout);
        static const org_kde_kwin_idle_timeout_listener listener = {
            .idle = [](void* data, org_kde_kwin_idle_timeout*) { static_cast<WaylandKeyboardIdleWatch*>(data)->setIdle(true); },
            .resumed = [](void* data, org_kde_kwin_idle_timeout*) {
                static_cast<WaylandKeyboardIdleWatch*>(data)->setIdle(false);
            },
        };
        org_kde_kwin_idle_timeout_add_listener(m_kdeTimeout, &listener, this);
    }
    m_connection.flush();
}

void WaylandKeyboardIdleWatch::stopWatching()
{
    if (m_notification) {
        ext_idle_notification_v1_destroy(m_notification);
        m_notification = nullptr;
    }
    if (m_kdeTimeout) {
        org_kde_kwin_idle_timeout_release(m_kdeTimeout);
        m_kdeTimeout = nullptr;
    }
    m_connection.flush();
}

} // namespace orvane
