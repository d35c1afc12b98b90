// SPDX-License-Identifier: GPL-3.0-or-later
// Orvane as a user runs it: a private desktop (D-Bus session, Evolution Data Server, Xvfb with openbox), a meeting in
// the desktop calendar, and the real `orvane` program alerting for it.
#include "domain/MeetingIdentity.h"
#include "persistence/DeliveryStore.h"
#include "persistence/SettingsDefaultsDatabase.h"
#include "persistence/SettingsStore.h"
#include "support/EdsTestSession.h"
#include "support/X11TestSession.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

constexpr double leadTime = 60;
constexpr double meetingOffset = 65;

/// Checks `done` every `step` milliseconds until it holds or `limit` milliseconds have passed.
template <class Condition>
bool eventually(qint64 limit, Condition done, unsigned long step = 200)
{
    QElapsedTimer waited;
    waited.start();
    while (!done()) {
        if (waited.elapsed() > limit) {
            return false;
        }
        QThread::msleep(step);
    }
    return true;
}

QString utcStamp(const QDateTime& time)
{
    return time.toUTC().toString(u"yyyyMMdd'T'HHmmss'Z'"_s);
}

class EndToEndTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        bus = new EdsTestSession;
        bus->start();
        desktop = new X11TestSession;
        desktop->start();
    }
    static void TearDownTestSuite()
    {
        delete desktop;
        delete bus;
    }

    static QProcessEnvironment environment()
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        environment.insert(u"DISPLAY"_s, QString::fromStdString(desktop->display()));
        environment.remove(u"WAYLAND_DISPLAY"_s);
        return environment;
    }

    static QString run(const QStringList& arguments, int* exitCode = nullptr)
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(QStringLiteral(ORVANE_BINARY), arguments);
        process.waitForFinished(20'000);
        if (exitCode) {
            *exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        }
        return QString::fromUtf8(process.readAllStandardOutput());
    }

    /// Whether a mapped window titled "Meeting reminder" exists.
    static bool alertIsShown()
    {
        try {
            return !desktop->run({"xdotool", "search", "--onlyvisible", "--name", "^Meeting reminder$"}).empty();
        } catch (const std::exception&) {
            return false; // xdotool exits 1 when nothing matches
        }
    }

    static inline EdsTestSession* bus = nullptr;
    static inline X11TestSession* desktop = nullptr;
};

TEST_F(EndToEndTest, AlertsForADesktopCalendarMeetingAndStaysTheOnlyCopy)
{
    // The meeting goes into the desktop's own personal calendar before the calendar service first starts.
    const QDateTime start = QDateTime::currentDateTimeUtc().addSecs(qint64(meetingOffset));
    const QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    ASSERT_TRUE(QDir().mkpath(dataHome + u"/evolution/calendar/system"_s));
    QFile calendar(dataHome + u"/evolution/calendar/system/calendar.ics"_s);
    ASSERT_TRUE(calendar.open(QIODevice::WriteOnly));
    calendar.write((u"BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Orvane//End to end//EN\r\nBEGIN:VEVENT\r\n"
                    u"UID:e2e-standup@orvane.test\r\nDTSTAMP:"_s +
                    utcStamp(QDateTime::currentDateTimeUtc()) + u"\r\nDTSTART:"_s + utcStamp(start) + u"\r\nDTEND:"_s +
                    utcStamp(start.addSecs(1800)) +
                    u"\r\nSUMMARY:End-to-end standup\r\nDESCRIPTION:Join https://meet.google.com/abc-defg-hij\r\n"
                    u"END:VEVENT\r\nEND:VCALENDAR\r\n"_s)
                       .toUtf8());
    calendar.close();

    // Lead time of a minute, onboarding done.
    const QString settingsFile = qEnvironmentVariable("XDG_CONFIG_HOME") + u"/velmont.com/Orvane.conf"_s;
    {
        SettingsDefaultsDatabase defaults(settingsFile);
        SettingsStore settings(defaults);
        auto values = settings.settings();
        values.alertLeadTime = leadTime;
        settings.save(values);
        defaults.setString(u"Orvane.hasCompletedCalendarOnboarding.v2"_s, u"true"_s);
    }

    QProcess orvane;
    orvane.setProcessEnvironment(environment());
    orvane.setProcessChannelMode(QProcess::ForwardedChannels);
    orvane.start(QStringLiteral(ORVANE_BINARY), {});
    ASSERT_TRUE(orvane.waitForStarted());

    // `orvane upcoming --json` answers from the running copy once it has read the calendar.
    QJsonArray meetings;
    for (QElapsedTimer waited; waited.elapsed() < 30'000 && meetings.isEmpty(); QThread::msleep(250)) {
        meetings =
            QJsonDocument::fromJson(run({u"upcoming"_s, u"--json"_s}).toUtf8()).object().value(u"meetings"_s).toArray();
    }
    ASSERT_EQ(meetings.size(), 1);
    EXPECT_EQ(meetings.at(0).toObject().value(u"title"_s).toString(), u"End-to-end standup"_s);
    EXPECT_EQ(meetings.at(0).toObject().value(u"joinURL"_s).toString(), u"https://meet.google.com/abc-defg-hij"_s);

    const QDateTime trigger = start.addSecs(-qint64(leadTime));
    while (QDateTime::currentDateTimeUtc() < trigger.addSecs(-2)) {
        ASSERT_FALSE(alertIsShown()) << "the alert came early";
        QThread::msleep(500);
    }
    // Late by more than the wait is a failure; how soon it shows under no load is the benchmarks' business.
    ASSERT_TRUE(eventually(10'000, [&] { return alertIsShown(); }, 20)) << "no alert window appeared";
    desktop->screenshot(ORVANE_E2E_ARTIFACTS_DIR "/alert.png");

    // Escape answers it once the panel has focus (it waits a moment after activation).
    EXPECT_TRUE(eventually(
        10'000,
        [&] {
            desktop->run({"xdotool", "key", "Escape"});
            QThread::msleep(200);
            return !alertIsShown();
        },
        300));

    // The reminder is on record as delivered, so it never comes again.
    EXPECT_TRUE(eventually(5'000, [&] {
        SettingsDefaultsDatabase defaults(settingsFile);
        DeliveryStore deliveries(defaults);
        const auto& records = deliveries.records();
        return std::any_of(records.begin(), records.end(), [](const DeliveryRecord& record) {
            return record.identity.seriesIdentifier.contains(u"e2e-standup@orvane.test"_s) &&
                   record.status == DeliveryStatus::confirmed;
        });
    }));

    // A second copy asks the first to come forward and leaves at once; the first keeps running.
    int exitCode = -1;
    QElapsedTimer secondCopy;
    secondCopy.start();
    run({}, &exitCode);
    EXPECT_EQ(exitCode, 0);
    EXPECT_LT(secondCopy.elapsed(), 3000);
    QThread::msleep(500);
    EXPECT_EQ(orvane.state(), QProcess::Running);

    orvane.terminate();
    EXPECT_TRUE(orvane.waitForFinished(10'000));
}

} // namespace
