// SPDX-License-Identifier: GPL-3.0-or-later
// The logind / screen saver monitor against real D-Bus daemons: two private buses (one stands in for the system
// bus) served by python3-dbusmock's logind and GNOME screen saver templates and a plain mock screen saver.
#include "alert/linux/LogindAlertPresentationSessionMonitor.h"
#include "alert/linux/X11DisplayState.h"
#include "support/Patience.h"
#include "support/Xvfb.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

const QString mockInterface = u"org.freedesktop.DBus.Mock"_s;
const QString sessionPath = u"/org/freedesktop/login1/session/c1"_s;

/// A dbus-daemon of the test's own.
class PrivateBus {
public:
    explicit PrivateBus(const QString& name)
        : m_name(name)
    {
        m_daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--nopidfile"_s, u"--print-address=1"_s});
        if (m_daemon.waitForReadyRead(patience)) {
            m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        }
        m_connection = QDBusConnection::connectToBus(m_address, m_name);
    }
    ~PrivateBus()
    {
        QDBusConnection::disconnectFromBus(m_name);
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

    const QString& address() const { return m_address; }
    /// The test's own connection, for driving the mocks.
    QDBusConnection connection() const { return m_connection; }
    /// A separate connection, as the monitor would have.
    QDBusConnection newConnection(const QString& name) const { return QDBusConnection::connectToBus(m_address, name); }

private:
    QString m_name;
    QProcess m_daemon;
    QString m_address;
    QDBusConnection m_connection{QString()};
};

/// One `python3 -m dbusmock` process serving `service` on `bus`.
class Mock {
public:
    Mock(const PrivateBus& bus, bool asSystemBus, const QString& service, const QStringList& arguments)
        : m_bus(bus)
        , m_service(service)
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(asSystemBus ? u"DBUS_SYSTEM_BUS_ADDRESS"_s : u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        // Debian's interpreter, which has the python3-dbusmock package.
        m_process.start(u"/usr/bin/python3"_s, QStringList{u"-m"_s, u"dbusmock"_s} + arguments);
        const auto* busInterface = bus.connection().interface();
        m_ready = QTest::qWaitFor([&] { return busInterface->isServiceRegistered(service).value(); }, patience);
    }
    ~Mock() { stop(); }

    bool isReady() const { return m_ready; }
    void stop()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    /// Calls `method` on the mock's control interface of `path`, and fails the test when the call fails.
    void call(const QString& path, const QString& method, const QVariantList& arguments,
              const QString& interface = mockInterface) const
    {
        auto message = QDBusMessage::createMethodCall(m_service, path, interface, method);
        message.setArguments(arguments);
        const auto reply = m_bus.connection().call(message);
        EXPECT_NE(reply.type(), QDBusMessage::ErrorMessage)
            << method.toStdString() << ": " << reply.errorMessage().toStdString();
    }
    void emitSignal(const QString& path, const QString& interface, const QString& name, const QString& signature,
                    const QVariantList& arguments) const
    {
        QVariantList variants;
        for (const auto& argument : arguments) {
            variants << QVariant::fromValue(QDBusVariant(argument));
        }
        call(path, u"EmitSignal"_s, {interface, name, signature, variants});
    }

private:
    const PrivateBus& m_bus;
    QString m_service;
    QProcess m_process;
    bool m_ready = false;
};

class PresentationSessionMonitorTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(systemBus.address().isEmpty());
        ASSERT_FALSE(sessionBus.address().isEmpty());
    }

    void makeMonitor(X11DisplayState* display = nullptr)
    {
        monitor = std::make_unique<LogindAlertPresentationSessionMonitor>(
            systemBus.newConnection(u"monitor-system"_s), sessionBus.newConnection(u"monitor-session"_s), display);
        monitor->setOnPresentationAvailabilityChange([this](bool available) { reports.push_back(available); });
    }

    /// logind with this process's session "c1", active; returns a caller of the session's mock methods.
    std::function<void(const QString&, const QVariantList&)> serveActiveSession(Mock& logind)
    {
        logind.call(u"/org/freedesktop/login1"_s, u"AddMethod"_s,
                    {u"org.freedesktop.login1.Manager"_s, u"GetSessionByPID"_s, u"u"_s, u"o"_s,
                     u"ret = dbus.ObjectPath('%1') if args[0] == %2 else None"_s.arg(sessionPath).arg(getpid())});
        logind.call(u"/org/freedesktop/login1"_s, u"AddSession"_s,
                    {u"c1"_s, u"seat0"_s, QVariant::fromValue(quint32(1000)), u"user"_s, true});
        return [&logind](const QString& method, const QVariantList& arguments) {
            logind.call(sessionPath, method, arguments, u"org.freedesktop.login1.Session"_s);
        };
    }
    /// Waits until the monitor listens to the session (it finds it asynchronously), and forgets the reports so far.
    void waitUntilSessionIsWatched(const std::function<void(const QString&, const QVariantList&)>& session)
    {
        session(u"SetLockedHint"_s, {true});
        ASSERT_TRUE(QTest::qWaitFor([&] { return monitor->isSessionLocked(); }, patience));
        session(u"SetLockedHint"_s, {false});
        ASSERT_TRUE(QTest::qWaitFor([&] { return !monitor->isSessionLocked(); }, patience));
        reports.clear();
    }

    /// Waits until `count` changes were reported.
    bool waitForReports(std::size_t count)
    {
        return QTest::qWaitFor([&] { return reports.size() >= count; }, patience);
    }

    void TearDown() override
    {
        monitor.reset();
        QDBusConnection::disconnectFromBus(u"monitor-system"_s);
        QDBusConnection::disconnectFromBus(u"monitor-session"_s);
    }

    PrivateBus systemBus{u"test-system"_s};
    PrivateBus sessionBus{u"test-session"_s};
    std::unique_ptr<LogindAlertPresentationSessionMonitor> monitor;
    std::vector<bool> reports;
};

TEST_F(PresentationSessionMonitorTest, WithoutAnyServiceThePresentationIsAvailable)
{
    makeMonitor();
    QTest::qWait(300);
    EXPECT_TRUE(monitor->isSessionActive());
    EXPECT_TRUE(monitor->isSystemAwake());
    EXPECT_TRUE(monitor->areScreensAwake());
    EXPECT_TRUE(reports.empty());
}

TEST_F(PresentationSessionMonitorTest, FollowsSessionSleepAndScreenSaverReportingOnlyRealChanges)
{
    Mock logind(systemBus, true, u"org.freedesktop.login1"_s, {u"--template"_s, u"logind"_s});
    Mock screenSaver(sessionBus, false, u"org.gnome.ScreenSaver"_s, {u"--template"_s, u"gnome_screensaver"_s});
    ASSERT_TRUE(logind.isReady() && screenSaver.isReady());
    // This process's session starts inactive (another user's session is on the console).
    logind.call(u"/org/freedesktop/login1"_s, u"AddMethod"_s,
                {u"org.freedesktop.login1.Manager"_s, u"GetSessionByPID"_s, u"u"_s, u"o"_s,
                 u"ret = dbus.ObjectPath('%1') if args[0] == %2 else None"_s.arg(sessionPath).arg(getpid())});
    logind.call(u"/org/freedesktop/login1"_s, u"AddSession"_s,
                {u"c1"_s, u"seat0"_s, QVariant::fromValue(quint32(1000)), u"user"_s, false});

    makeMonitor();
    ASSERT_TRUE(waitForReports(1));
    EXPECT_FALSE(monitor->isSessionActive());
    // The application refreshes its meetings on each wake and each return of the session, once.
    QSignalSpy wakes(monitor.get(), &LogindAlertPresentationSessionMonitor::systemDidWake);
    QSignalSpy returns(monitor.get(), &LogindAlertPresentationSessionMonitor::sessionDidBecomeActive);

    const auto setActive = [&](bool active) {
        logind.call(sessionPath, u"UpdateProperties"_s,
                    {u"org.freedesktop.login1.Session"_s, QVariantMap{{u"Active"_s, active}}});
    };
    const auto callSession = [&](const QString& method, const QVariantList& arguments = {}) {
        logind.call(sessionPath, method, arguments, u"org.freedesktop.login1.Session"_s);
    };
    const auto prepareForSleep = [&](bool start) {
        logind.emitSignal(u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s,
                          u"b"_s, {start});
    };
    const auto setScreenSaverActive = [&](bool active) {
        screenSaver.call(u"/org/gnome/ScreenSaver"_s, u"SetActive"_s, {active}, u"org.gnome.ScreenSaver"_s);
    };
    struct Step {
        std::string name;
        std::function<void()> act;
        std::optional<bool> expectedReport;
    };
    const std::vector<Step> steps = {
        {"session becomes active", [&] { setActive(true); }, true},
        {"screen saver starts", [&] { setScreenSaverActive(true); }, false},
        {"lock while screens asleep", [&] { callSession(u"Lock"_s); }, std::nullopt},
        {"unlock while screens asleep", [&] { callSession(u"Unlock"_s); }, std::nullopt},
        {"screens wake", [&] { setScreenSaverActive(false); }, true},
        {"system prepares for sleep", [&] { prepareForSleep(true); }, false},
        {"system prepares for sleep again", [&] { prepareForSleep(true); }, std::nullopt},
        {"system wakes", [&] { prepareForSleep(false); }, true},
        {"a stranger claims the system sleeps",
         [&] {
             auto forged = QDBusMessage::createSignal(u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s,
                                                      u"PrepareForSleep"_s);
             forged << true;
             systemBus.connection().send(forged);
         },
         std::nullopt},
        {"session locked", [&] { callSession(u"Lock"_s); }, false},
        {"session unlocked", [&] { callSession(u"Unlock"_s); }, true},
        {"locker reports locked", [&] { callSession(u"SetLockedHint"_s, {true}); }, false},
        {"session becomes inactive while locked", [&] { setActive(false); }, std::nullopt},
        {"locker reports unlocked", [&] { callSession(u"SetLockedHint"_s, {false}); }, std::nullopt},
        {"session active again", [&] { setActive(true); }, true},
    };
    std::vector<bool> expected{false};
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        step.act();
        if (step.expectedReport) {
            expected.push_back(*step.expectedReport);
            ASSERT_TRUE(waitForReports(expected.size()));
        }
    }
    QTest::qWait(200);
    EXPECT_EQ(reports, expected);
    EXPECT_EQ(wakes.size(), 1);
    EXPECT_EQ(returns.size(), 4);
}

TEST_F(PresentationSessionMonitorTest, ALockLastsWhileALockerShowsAndOneThatNothingConfirmsLapses)
{
    Mock logind(systemBus, true, u"org.freedesktop.login1"_s, {u"--template"_s, u"logind"_s});
    Mock screenSaver(sessionBus, false, u"org.gnome.ScreenSaver"_s, {u"--template"_s, u"gnome_screensaver"_s});
    ASSERT_TRUE(logind.isReady() && screenSaver.isReady());
    const auto session = serveActiveSession(logind);
    makeMonitor();
    monitor->setLockConfirmationWindow(std::chrono::milliseconds(200));
    waitUntilSessionIsWatched(session);
    QSignalSpy locks(monitor.get(), &LogindAlertPresentationSessionMonitor::sessionLockChanged);

    const auto setScreenSaverActive = [&](bool active) {
        screenSaver.call(u"/org/gnome/ScreenSaver"_s, u"SetActive"_s, {active}, u"org.gnome.ScreenSaver"_s);
    };
    struct Step {
        std::string name;
        std::function<void()> act;
        std::optional<bool> available;
        std::optional<bool> locked;
    };
    const std::vector<Step> steps = {
        // Lock requested and no locker anywhere (no hint, no screen saver): alerts come back after a moment.
        {"lock without a locker", [&] { session(u"Lock"_s, {}); }, false, true},
        {"the request lapses", [] {}, true, false},
        // GNOME Shell and kscreenlocker unlock by dropping the hint, without any Unlock.
        {"the locker sets the hint", [&] { session(u"SetLockedHint"_s, {true}); }, false, true},
        {"lock asked for, then the hint drops",
         [&] {
             session(u"Lock"_s, {});
             session(u"SetLockedHint"_s, {false});
         },
         true, false},
        // A screen saver that locks stays active until it is unlocked.
        {"the screen saver starts", [&] { setScreenSaverActive(true); }, false, std::nullopt},
        {"lock while it shows", [&] { session(u"Lock"_s, {}); }, std::nullopt, true},
        {"unlocked: the screen saver ends", [&] { setScreenSaverActive(false); }, true, false},
    };
    std::vector<bool> expected;
    std::vector<bool> expectedLocks;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.name);
        step.act();
        if (step.available) {
            expected.push_back(*step.available);
        }
        if (step.locked) {
            expectedLocks.push_back(*step.locked);
        }
        ASSERT_TRUE(QTest::qWaitFor(
            [&] { return reports.size() >= expected.size() && std::size_t(locks.size()) >= expectedLocks.size(); },
            5'000));
    }
    EXPECT_EQ(reports, expected);
    std::vector<bool> lockChanges;
    for (const auto& change : locks) {
        lockChanges.push_back(change.at(0).toBool());
    }
    EXPECT_EQ(lockChanges, expectedLocks);
}

TEST_F(PresentationSessionMonitorTest, OnX11TheScreenSaverAndALockersKeyboardGrabCount)
{
    Xvfb xvfb;
    ASSERT_FALSE(xvfb.display().isEmpty()) << "Xvfb did not start";
    Mock logind(systemBus, true, u"org.freedesktop.login1"_s, {u"--template"_s, u"logind"_s});
    ASSERT_TRUE(logind.isReady());
    const auto session = serveActiveSession(logind);
    X11DisplayState display(xvfb.display());
    ASSERT_TRUE(display.isConnected());
    makeMonitor(&display);
    monitor->setLockConfirmationWindow(std::chrono::milliseconds(200));
    waitUntilSessionIsWatched(session);
    X11Client desktop(xvfb.display());

    // Displays powered down force the screen saver on, which is what is seen of them.
    desktop.forceScreenSaver(true);
    ASSERT_TRUE(waitForReports(1));
    EXPECT_FALSE(monitor->areScreensAwake());
    desktop.forceScreenSaver(false);
    ASSERT_TRUE(waitForReports(2));

    // i3lock sets no hint and has no screen saver service: its keyboard grab is what shows it runs.
    auto locker = std::make_unique<X11Client>(xvfb.display());
    ASSERT_EQ(locker->grabKeyboard(), XCB_GRAB_STATUS_SUCCESS);
    session(u"Lock"_s, {});
    ASSERT_TRUE(waitForReports(3));
    // Confirmed by the grab, the monitor waits for the locker's window to go.
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return desktop.allEventMasks(desktop.root()) & XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY; }, 5'000));
    locker->destroyWindow();
    ASSERT_TRUE(waitForReports(4));

    // A locker that starts after the request lapsed is seen just before the next alert.
    session(u"Lock"_s, {});
    ASSERT_TRUE(waitForReports(6));
    locker = std::make_unique<X11Client>(xvfb.display());
    ASSERT_EQ(locker->grabKeyboard(), XCB_GRAB_STATUS_SUCCESS);
    monitor->recheck();
    ASSERT_TRUE(waitForReports(7));
    locker.reset();
    ASSERT_TRUE(waitForReports(8));
    EXPECT_EQ(reports, (std::vector<bool>{false, true, false, true, false, true, false, true}));
}

TEST_F(PresentationSessionMonitorTest, OutsideASessionFollowsTheSessionTheEnvironmentNames)
{
    // logind knows no session for this PID (the mock has no GetSessionByPID at all).
    Mock logind(systemBus, true, u"org.freedesktop.login1"_s, {u"--template"_s, u"logind"_s});
    ASSERT_TRUE(logind.isReady());
    logind.call(u"/org/freedesktop/login1"_s, u"AddSession"_s,
                {u"c7"_s, u"seat0"_s, QVariant::fromValue(quint32(1000)), u"user"_s, false});
    const QByteArray previous = qgetenv("XDG_SESSION_ID");
    qputenv("XDG_SESSION_ID", "c7");
    makeMonitor();
    const bool reported = waitForReports(1);
    qputenv("XDG_SESSION_ID", previous);
    ASSERT_TRUE(reported);
    EXPECT_FALSE(monitor->isSessionActive());
    logind.call(u"/org/freedesktop/login1/session/c7"_s, u"Lock"_s, {}, u"org.freedesktop.login1.Session"_s);
    logind.call(u"/org/freedesktop/login1/session/c7"_s, u"UpdateProperties"_s,
                {u"org.freedesktop.login1.Session"_s, QVariantMap{{u"Active"_s, true}}});
    logind.call(u"/org/freedesktop/login1/session/c7"_s, u"Unlock"_s, {}, u"org.freedesktop.login1.Session"_s);
    ASSERT_TRUE(waitForReports(2));
    EXPECT_EQ(reports, (std::vector<bool>{false, true}));
}

TEST_F(PresentationSessionMonitorTest, PicksUpServicesThatAppearLaterAndForgetsThoseThatLeave)
{
    makeMonitor();
    QTest::qWait(100);

    // logind starts while the system is already preparing for sleep.
    auto logind = std::make_unique<Mock>(
        systemBus, true, u"org.freedesktop.login1"_s,
        QStringList{u"--template"_s, u"logind"_s, u"--parameters"_s, uR"({"PreparingForSleep": true})"_s});
    ASSERT_TRUE(logind->isReady());
    ASSERT_TRUE(waitForReports(1));
    EXPECT_FALSE(monitor->isSystemAwake());
    logind.reset();
    ASSERT_TRUE(waitForReports(2));

    Mock screenSaver(sessionBus, false, u"org.freedesktop.ScreenSaver"_s,
                     {u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s});
    ASSERT_TRUE(screenSaver.isReady());
    screenSaver.emitSignal(u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s, u"b"_s, {true});
    ASSERT_TRUE(waitForReports(3));
    EXPECT_FALSE(monitor->areScreensAwake());
    screenSaver.stop();
    ASSERT_TRUE(waitForReports(4));

    EXPECT_EQ(reports, (std::vector<bool>{false, true, false, true}));
    EXPECT_TRUE(monitor->isPresentationAvailable());
}

} // namespace
