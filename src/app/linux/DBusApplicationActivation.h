// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/ApplicationInstanceLock.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace orvane {

/// The desktop's single-application convention: the running copy owns the bus name "com.velmont.Orvane" and
/// answers org.freedesktop.Application.
struct DBusApplicationAddress {
    static inline const QString serviceName = QStringLiteral("com.velmont.Orvane");
    static inline const QString objectPath = QStringLiteral("/com/velmont/Orvane");
    static inline const QString interfaceName = QStringLiteral("org.freedesktop.Application");
};

/// Asks the running copy to come forward. It runs before any interface exists, so waiting for the answer (a few
/// seconds at most) blocks nothing the user sees. The launcher's activation token (XDG_ACTIVATION_TOKEN, or
/// DESKTOP_STARTUP_ID on X11) goes along as the desktop's platform data: only with it may the running copy raise a
/// window in front of the user's work.
class DBusApplicationActivator final : public ApplicationActivating {
public:
    explicit DBusApplicationActivator(QDBusConnection connection = QDBusConnection::sessionBus());
    void activateRunningInstance() override;

private:
    QDBusConnection m_connection;
};

/// The running copy's side: owns the bus name and turns Activate (a second launch, or the desktop's launcher) into
/// `reopenRequested`.
class DBusApplicationService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    explicit DBusApplicationService(QDBusConnection connection = QDBusConnection::sessionBus(),
                                    QObject* parent = nullptr);
    ~DBusApplicationService() override;

    /// Registers the object and claims the name; false when the bus is unreachable or the name is taken.
    bool registerOnBus();

public Q_SLOTS:
    void Activate(const QVariantMap& platformData);
    void Open(const QStringList& uris, const QVariantMap& platformData);
    void ActivateAction(const QString& actionName, const QVariantList& parameter, const QVariantMap& platformData);

    /// The token a launcher gave for this activation in `platformData` ("activation-token", else
    /// "desktop-startup-id"); empty without one.
    static QString activationToken(const QVariantMap& platformData);
    /// The platform data this process's launcher gave it, from its environment.
    static QVariantMap launcherPlatformData();

Q_SIGNALS:
    /// `activationToken` may be empty.
    void reopenRequested(const QString& activationToken);

private:
    QDBusConnection m_connection;
    bool m_registered = false;
};

} // namespace orvane
