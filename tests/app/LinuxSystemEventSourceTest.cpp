// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/linux/LinuxSystemEventSource.h"

#include "support/Patience.h"

#include <QDBusConnection>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

/// Points the fake /etc/localtime at `zone` the way timedatectl does: a new link renamed over the old one.
void setZone(const QTemporaryDir& etc, const QString& zone)
{
    const QString replacement = etc.filePath(u"localtime.new"_s);
    QFile::remove(replacement);
    ASSERT_TRUE(QFile::link(u"/usr/share/zoneinfo/"_s + zone, replacement));
    ASSERT_EQ(::rename(QFile::encodeName(replacement).constData(),
                       QFile::encodeName(etc.filePath(u"localtime"_s)).constData()),
              0);
}

TEST(LinuxSystemEventSourceTest, ReportsEachRealZoneChangeOnce)
{
    QTemporaryDir etc;
    setZone(etc, u"Europe/Berlin"_s);
    LinuxSystemEventSource events(QDBusConnection(u"none"_s), etc.filePath(u"localtime"_s));
    QSignalSpy changes(&events, &SystemEventSource::timeZoneChanged);

    setZone(etc, u"America/New_York"_s);
    ASSERT_TRUE(changes.wait(patience));
    EXPECT_EQ(events.currentZone(), u"/usr/share/zoneinfo/America/New_York"_s);

    // Other files changing beside it, or the same zone written again, are not a change.
    QFile other(etc.filePath(u"hostname"_s));
    ASSERT_TRUE(other.open(QIODevice::WriteOnly));
    other.write("box\n");
    other.close();
    setZone(etc, u"America/New_York"_s);
    EXPECT_FALSE(changes.wait(500));
    EXPECT_EQ(changes.size(), 1);

    setZone(etc, u"Asia/Tokyo"_s);
    ASSERT_TRUE(changes.wait(patience));
    EXPECT_EQ(changes.size(), 2);
}

} // namespace
