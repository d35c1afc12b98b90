// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/linux/StatusItemHostWatch.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {
const QString watcherService = u"org.kde.StatusNotifierWatcher"_s;
const QString watcherPath = u"/StatusNotifierWatcher"_s;
} // namespace

StatusItemHostWatch::StatusItemHostWatch(QDBusConnection bus, bool x11Session, QObject* parent)
    : QObject(parent)
    , m_bus(std::move(bus))
    , m_x11Session(x11Session)
{
    auto* serviceWatcher =
        new QDBusServiceWatcher(watcherService, m_bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(serviceWatcher, &QDBusServiceWatcher::serviceRegistered, this,
            &StatusItemHostWatch::askWhetherHostIsRegistered);
    // A watcher that is up before its host (the panel) says so when the host comes.
    m_bus.connect(watcherService, watcherPath, watcherService, u"StatusNotifierHostRegistered"_s, this,
                  SLOT(askWhetherHostIsRegistered()));
    askWhetherHostIsRegistered();

    if (x11Session) {
        m_xembedGrace.setSingleShot(true);
        m_xembedGrace.setInterval(xembedGrace);
        connect(&m_xembedGrace, &QTimer::timeout, this, &StatusItemHostWatch::setAvailable);
        m_xembedGrace.start();
    }
}

void StatusItemHostWatch::askWhetherHostIsRegistered()
{
    if (m_available) {
        return;
    }
    auto message = QDBusMessage::createMethodCall(watcherService, watcherPath, u"org.freedesktop.DBus.Properties"_s,
                                                  u"Get"_s);
    message << watcherService << u"IsStatusNotifierHostRegistered"_s;
    auto* call = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *call;
        // No watcher yet is the usual answer at start: its appearance is awaited. On X11 an XEmbed tray may be
        // there all the same, which only the grace period tells.
        if (!reply.isError() && reply.value().variant().toBool()) {
            setAvailable();
        } else if (!m_x11Session && !m_available && !m_missing) {
            m_missing = true;
            Q_EMIT hostMissing();
        }
    });
}

void StatusItemHostWatch::setAvailable()
{
    if (m_available) {
        return;
    }
    m_available = true;
    m_missing = false;
    m_xembedGrace.stop();
    Q_EMIT hostAvailable();
}

} // namespace orvane
