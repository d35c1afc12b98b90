// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/linux/LinuxSystemEventSource.h"

#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QTimeZone>

#include <ctime>

using namespace Qt::StringLiterals;

namespace orvane {

LinuxSystemEventSource::LinuxSystemEventSource(QDBusConnection systemBus, QString localtimePath, QObject* parent)
    : SystemEventSource(parent)
    , m_localtimePath(std::move(localtimePath))
    , m_watcher(new QFileSystemWatcher(this))
{
    m_zone = currentZone();
    if (systemBus.isConnected()) {
        // Matched without a sender: a service name here would make Qt look its owner up with a blocking call.
        systemBus.connect(QString(), u"/org/freedesktop/timedate1"_s, u"org.freedesktop.DBus.Properties"_s,
                          u"PropertiesChanged"_s, this, SLOT(handleTimedatePropertiesChanged(QDBusMessage)));
    }
    // The link is replaced, not edited, so its directory is watched as well: a watch on the old file dies with it.
    connect(m_watcher, &QFileSystemWatcher::fileChanged, this, [this] { checkZone(); });
    connect(m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { checkZone(); });
    watchFiles();
}

QString LinuxSystemEventSource::currentZone() const
{
    const QFileInfo link(m_localtimePath);
    if (link.isSymLink()) {
        return link.symLinkTarget();
    }
    QFile named(QFileInfo(m_localtimePath).dir().filePath(u"timezone"_s));
    if (named.open(QIODevice::ReadOnly)) {
        return QString::fromUtf8(named.readAll()).trimmed();
    }
    // A copied zone file: its bytes are the zone.
    QFile copied(m_localtimePath);
    return copied.open(QIODevice::ReadOnly) ? QString::fromLatin1(copied.readAll().toHex().left(128)) : QString();
}

void LinuxSystemEventSource::handleTimedatePropertiesChanged(const QDBusMessage& message)
{
    if (!message.arguments().isEmpty() &&
        message.arguments().constFirst().toString() == u"org.freedesktop.timedate1"_s) {
        checkZone();
    }
}

void LinuxSystemEventSource::checkZone()
{
    watchFiles();
    const QString zone = currentZone();
    if (zone == m_zone) {
        return;
    }
    m_zone = zone;
    // The C library caches the zone; times computed after this must use the new one.
    ::tzset();
    Q_EMIT timeZoneChanged();
}

void LinuxSystemEventSource::watchFiles()
{
    const QString directory = QFileInfo(m_localtimePath).absolutePath();
    if (!m_watcher->directories().contains(directory)) {
        m_watcher->addPath(directory);
    }
    if (QFileInfo::exists(m_localtimePath) && !m_watcher->files().contains(m_localtimePath)) {
        m_watcher->addPath(m_localtimePath);
    }
}

} // namespace orvane
