// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/linux/BackgroundPortalLaunchAtLoginService.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QPointer>
#include <QVariantMap>
#include <qcoro/qcorodbuspendingreply.h>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString requestInterface = u"org.freedesktop.portal.Request"_s;

} // namespace

BackgroundPortalLaunchAtLoginService::BackgroundPortalLaunchAtLoginService(QDBusConnection sessionBus, QObject* parent)
    : LaunchAtLoginService(parent)
    , m_bus(std::move(sessionBus))
{
}

BackgroundPortalLaunchAtLoginService::~BackgroundPortalLaunchAtLoginService()
{
    for (const QString& handle : m_pending.keys()) {
        unwatch(handle);
    }
}

bool BackgroundPortalLaunchAtLoginService::isSandboxed()
{
    return QFileInfo::exists(u"/.flatpak-info"_s);
}

LaunchAtLoginService::Status BackgroundPortalLaunchAtLoginService::statusForResponse(uint response, bool autostart,
                                                                                     Status before)
{
    if (response != 0) {
        return before;
    }
    return autostart ? Status::enabled : Status::notRegistered;
}

QCoro::Task<> BackgroundPortalLaunchAtLoginService::registerMainApp()
{
    return request(true);
}

QCoro::Task<> BackgroundPortalLaunchAtLoginService::unregisterMainApp()
{
    return request(false);
}

QCoro::Task<> BackgroundPortalLaunchAtLoginService::request(bool autostart)
{
    // The answer may come before the call's reply, so its request object is watched first, at the path the portal
    // derives from our unique name and the token.
    const QString token = u"orvane_launch_%1"_s.arg(m_nextToken++);
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    const QString expected = u"/org/freedesktop/portal/desktop/request/%1/%2"_s.arg(sender, token);
    const Status before = m_status;
    watch(expected);
    m_pending.insert(expected, {before});
    if (autostart) {
        m_status = Status::requiresApproval;
    }

    auto call = QDBusMessage::createMethodCall(portalService, portalPath, u"org.freedesktop.portal.Background"_s,
                                               u"RequestBackground"_s);
    const QVariantMap options{
        {u"handle_token"_s, token},
        {u"reason"_s, u"Orvane starts at login so that it can remind you of your meetings."_s},
        {u"autostart"_s, autostart},
        // The desktop entry's command, told that the session starts it at login.
        {u"commandline"_s, QStringList{u"orvane"_s, u"--at-login"_s}},
    };
    call.setArguments({QString() /* parent window */, options});
    QPointer<BackgroundPortalLaunchAtLoginService> self(this);
    QDBusPendingReply<QDBusObjectPath> reply = m_bus.asyncCall(call);
    co_await reply;
    if (!self) {
        co_return;
    }
    if (reply.isError()) {
        unwatch(expected);
        m_pending.remove(expected);
        m_status = before;
        throw LaunchAtLoginError(LaunchAtLoginError::PortalFailed{reply.error().message()});
    }
    // Older portals choose the handle themselves.
    const QString handle = reply.value().path();
    if (handle != expected && m_pending.contains(expected)) {
        unwatch(expected);
        m_pending.remove(expected);
        watch(handle);
        m_pending.insert(handle, {before});
    }
}

void BackgroundPortalLaunchAtLoginService::handleResponse(const QDBusMessage& message)
{
    const auto pending = m_pending.find(message.path());
    const QVariantList arguments = message.arguments();
    if (pending == m_pending.end() || arguments.size() < 2) {
        return;
    }
    const Status before = pending->before;
    unwatch(message.path());
    m_pending.erase(pending);
    const QVariantMap results = qdbus_cast<QVariantMap>(arguments.at(1));
    m_status = statusForResponse(arguments.at(0).toUInt(), results.value(u"autostart"_s).toBool(), before);
    Q_EMIT statusChanged();
}

void BackgroundPortalLaunchAtLoginService::watch(const QString& handle)
{
    // Matched without a sender: naming the portal would make Qt look its owner up with a blocking call.
    m_bus.connect(QString(), handle, requestInterface, u"Response"_s, this, SLOT(handleResponse(QDBusMessage)));
}

void BackgroundPortalLaunchAtLoginService::unwatch(const QString& handle)
{
    m_bus.disconnect(QString(), handle, requestInterface, u"Response"_s, this, SLOT(handleResponse(QDBusMessage)));
}

} // namespace orvane
