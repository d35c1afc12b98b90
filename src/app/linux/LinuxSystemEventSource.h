// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "model/SystemEventSource.h"

#include <QDBusConnection>
#include <QString>

class QDBusMessage;
class QFileSystemWatcher;

namespace orvane {

/// The time-zone half of the system events, from the places a Linux desktop changes it: timedated's `Timezone`
/// property (system bus) and the `/etc/localtime` link (or `/etc/timezone`) that every tool rewrites. Both usually
/// report the same change, so a change is reported only when the zone's name actually differs from the last one.
/// The clock, wake and session signals come from the timer and the session monitor and are forwarded as they are.
class LinuxSystemEventSource final : public SystemEventSource {
    Q_OBJECT

public:
    explicit LinuxSystemEventSource(QDBusConnection systemBus = QDBusConnection::systemBus(),
                                    QString localtimePath = QStringLiteral("/etc/localtime"),
                                    QObject* parent = nullptr);

    /// The zone's name as the system files give it now.
    QString currentZone() const;

private Q_SLOTS:
    void handleTimedatePropertiesChanged(const QDBusMessage& message);

private:
    void checkZone();
    void watchFiles();

    QString m_localtimePath;
    QFileSystemWatcher* m_watcher;
    QString m_zone;
};

} // namespace orvane
