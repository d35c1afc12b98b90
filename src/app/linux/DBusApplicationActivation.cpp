// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/linux/DBusApplicationActivation.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace orvane {

namespace {

constexpr int activationTimeoutMilliseconds = 5'000;

} // namespace

DBusApplicationActivator::DBusApplicationActivator(QDBusConnection connection)
    : m_connection(std::move(connection))
{
}

void DBusApplicationActivator::activateRunningInstance()
{
    if (!m_connection.isConnected()) {
        return;
    }
    auto message =
        QDBusMessage::createMethodCall(DBusApplicationAddress::serviceName, DBusApplicationAddress::objectPath,
                                       DBusApplicationAddress::interfaceName, QStringLiteral("Activate"));
    message << DBusApplicationService::launcherPlatformData();
    // Nothing to do with the answer: a copy that is gone, or hangs, is not this process's to fix.
    m_connection.call(message, QDBus::Block, activationTimeoutMilliseconds);
}

DBusApplicationService::DBusApplicationService(QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_connection(std::move(connection))
{
}

DBusApplicationService::~DBusApplicationService()
{
    if (m_registered) {
        m_connection.unregisterObject(DBusApplicationAddress::objectPath);
        m_connection.unregisterService(DBusApplicationAddress::serviceName);
    }
}

bool DBusApplicationService::registerOnBus()
{
    if (!m_connection.isConnected() ||
        !m_connection.registerObject(DBusApplicationAddress::objectPath, this, QDBusConnection::ExportAllSlots)) {
        return false;
    }
    if (!m_connection.registerService(DBusApplicationAddress::serviceName)) {
        m_connection.unregisterObject(DBusApplicationAddress::objectPath);
        return false;
    }
    m_registered = true;
    return true;
}

QString DBusApplicationService::activationToken(const QVariantMap& platformData)
{
    for (const char* key : {"activation-token", "desktop-startup-id"}) {
        const QString token = platformData.value(QString::fromLatin1(key)).toString();
        if (!token.isEmpty()) {
            return token;
        }
    }
    return {};
}

QVariantMap DBusApplicationService::launcherPlatformData()
{
    QVariantMap data;
    if (const QString token = qEnvironmentVariable("XDG_ACTIVATION_TOKEN"); !token.isEmpty()) {
        data.insert(QStringLiteral("activation-token"), token);
    }
    if (const QString id = qEnvironmentVariable("DESKTOP_STARTUP_ID"); !id.isEmpty()) {
        data.insert(QStringLiteral("desktop-startup-id"), id);
    }
    return data;
}

void DBusApplicationService::Activate(const QVariantMap& platformData)
{
    Q_EMIT reopenRequested(activationToken(platformData));
}

void DBusApplicationService::Open(const QStringList&, const QVariantMap& platformData)
{
    Q_EMIT reopenRequested(activationToken(platformData));
}

void DBusApplicationService::ActivateAction(const QString&, const QVariantList&, const QVariantMap& platformData)
{
    Q_EMIT reopenRequested(activationToken(platformData));
}

} // namespace orvane
