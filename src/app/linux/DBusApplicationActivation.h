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
/// seconds at most) blocks nothing the user sees.
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

Q_SIGNALS:
    void reopenRequested();

private:
    QDBusConnection m_connection;
    bool m_registered = false;
};

} // namespace orvane
