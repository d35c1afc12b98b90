// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/Patience.h"
#include "support/RunTask.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/linux/BackgroundPortalLaunchAtLoginService.h"
#include "ui/linux/XdgAutostartLaunchAtLoginService.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <unistd.h>

using namespace orvane;
using namespace Qt::StringLiterals;
using Status = LaunchAtLoginService::Status;
using State = LaunchAtLoginController::State;

namespace {

class ScriptedService final : public LaunchAtLoginService {
public:
    Status status() const override { return current; }
    QCoro::Task<> registerMainApp() override { return answer(afterRegister); }
    QCoro::Task<> unregisterMainApp() override { return answer(Status::notRegistered); }

    Status current = Status::notRegistered;
    Status afterRegister = Status::enabled;
    bool fails = false;

private:
    QCoro::Task<> answer(Status next)
    {
        if (fails) {
            throw LaunchAtLoginError(LaunchAtLoginError::RemoveFailed{u"/x.desktop"_s, u"Permission denied"_s});
        }
        current = next;
        co_return;
    }
};

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool write(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

/// What the task threw; empty when it succeeded.
std::optional<QString> failure(QCoro::Task<> task)
{
    try {
        runTask(std::move(task));
        return std::nullopt;
    } catch (const LaunchAtLoginError& error) {
        return error.description();
    }
}

/// A private session bus, with python3-dbusmock serving the Background portal when `serves`. RequestBackground
/// answers with a handle of its own ("<token>_on" or "<token>_off", after the autostart option); the test responds.
class PortalMock {
public:
    explicit PortalMock(bool serves = true)
    {
        m_daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--nopidfile"_s, u"--print-address=1"_s});
        if (m_daemon.waitForReadyRead(patience)) {
            m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
        }
        bus = QDBusConnection::connectToBus(m_address, u"portal-test"_s);
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_address);
        if (!serves) {
            ready = bus.isConnected();
            return;
        }
        m_mock.setProcessEnvironment(environment);
        m_mock.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_mock.start(u"/usr/bin/python3"_s,
                     {u"-m"_s, u"dbusmock"_s, u"org.freedesktop.portal.Desktop"_s, u"/org/freedesktop/portal/desktop"_s,
                      u"org.freedesktop.portal.Background"_s});
        ready = QTest::qWaitFor(
            [&] { return bus.interface()->isServiceRegistered(u"org.freedesktop.portal.Desktop"_s).value(); }, 15'000);
        if (ready) {
            call(u"/org/freedesktop/portal/desktop"_s, u"AddMethod"_s,
                 {u"org.freedesktop.portal.Background"_s, u"RequestBackground"_s, u"sa{sv}"_s, u"o"_s,
                  u"ret = dbus.ObjectPath('/org/freedesktop/portal/desktop/request/mock/' + args[1]['handle_token'] + "
                  u"('_on' if args[1]['autostart'] else '_off'))"_s});
        }
    }
    ~PortalMock()
    {
        QDBusConnection::disconnectFromBus(u"portal-test"_s);
        m_mock.kill();
        m_mock.waitForFinished();
        m_daemon.kill();
        m_daemon.waitForFinished();
    }

    QDBusMessage call(const QString& path, const QString& method, const QVariantList& arguments) const
    {
        auto message = QDBusMessage::createMethodCall(u"org.freedesktop.portal.Desktop"_s, path,
                                                      u"org.freedesktop.DBus.Mock"_s, method);
        message.setArguments(arguments);
        return bus.call(message);
    }

    void respond(const QString& handle, uint response, bool autostart) const
    {
        const QString path = u"/org/freedesktop/portal/desktop/request/mock/"_s + handle;
        call(u"/org/freedesktop/portal/desktop"_s, u"AddObject"_s,
             {path, u"org.freedesktop.portal.Request"_s, QVariantMap(), QVariant::fromValue(QList<QVariant>())});
        const QVariantMap results{{u"autostart"_s, autostart}, {u"background"_s, true}};
        call(path, u"EmitSignal"_s,
             {u"org.freedesktop.portal.Request"_s, u"Response"_s, u"ua{sv}"_s,
              QVariantList{QVariant::fromValue(QDBusVariant(response)), QVariant::fromValue(QDBusVariant(results))}});
    }

    QDBusConnection bus{QString()};
    bool ready = false;

private:
    QProcess m_daemon;
    QProcess m_mock;
    QString m_address;
};

} // namespace

TEST(LaunchAtLoginControllerTest, MapsEveryStatusAndShowsItsNote)
{
    const struct {
        Status status;
        State state;
        bool isOn;
        std::optional<QString> note;
    } rows[] = {
        {Status::notRegistered, State::disabled, false, std::nullopt},
        {Status::enabled, State::enabled, true, std::nullopt},
        {Status::requiresApproval, State::requiresApproval, true, LaunchAtLoginController::approvalNote()},
        {Status::notFound, State::disabled, false, std::nullopt},
        {Status::unknown, State::unavailable, false, LaunchAtLoginController::unavailableNote()},
        {static_cast<Status>(42), State::unavailable, false, LaunchAtLoginController::unavailableNote()},
    };
    for (const auto& row : rows) {
        ScriptedService service;
        service.current = row.status;
        const LaunchAtLoginController controller(service);
        EXPECT_EQ(controller.state(), row.state) << static_cast<int>(row.status);
        EXPECT_EQ(controller.isOn(), row.isOn) << static_cast<int>(row.status);
        EXPECT_EQ(controller.note(), row.note) << static_cast<int>(row.status);
    }
    EXPECT_EQ(LaunchAtLoginController::approvalNote(),
              u"Your desktop requires approval in its settings for apps that run in the background."_s);
}

TEST(LaunchAtLoginControllerTest, SetEnabledRecordsTheOutcomeAndRereadsTheSystem)
{
    ScriptedService service;
    LaunchAtLoginController controller(service);
    QSignalSpy changed(&controller, &LaunchAtLoginController::changed);

    service.afterRegister = Status::requiresApproval;
    runTask(controller.setEnabled(true));
    EXPECT_EQ(controller.state(), State::requiresApproval);
    EXPECT_TRUE(controller.isOn());

    service.current = Status::enabled;
    service.fails = true;
    runTask(controller.setEnabled(false));
    EXPECT_EQ(controller.state(), State::enabled);
    EXPECT_EQ(controller.errorMessage(), u"The autostart entry /x.desktop could not be removed: Permission denied"_s);

    // Success clears the message; a change the service reports itself is picked up.
    service.fails = false;
    runTask(controller.setEnabled(false));
    EXPECT_EQ(controller.state(), State::disabled);
    EXPECT_EQ(controller.errorMessage(), std::nullopt);
    service.current = Status::enabled;
    Q_EMIT service.statusChanged();
    EXPECT_EQ(controller.state(), State::enabled);
    EXPECT_EQ(changed.count(), 4);
}

TEST(XdgAutostartTest, QuotesTheProgramPathForExec)
{
    const struct {
        QString path;
        QString exec;
    } rows[] = {
        {u"/usr/bin/orvane"_s, uR"("/usr/bin/orvane")"_s},
        {u"/home/a b/My Apps/orvane"_s, uR"("/home/a b/My Apps/orvane")"_s},
        {u"/opt/$HOME/`x`/\"q\"/orvane"_s, uR"("/opt/\\$HOME/\\`x\\`/\\"q\\"/orvane")"_s},
        {u"/opt/back\\slash/100%/orvane"_s, uR"("/opt/back\\\\slash/100%%/orvane")"_s},
        {u"/opt/new\nline/orvane"_s, uR"("/opt/new\nline/orvane")"_s},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(XdgAutostartLaunchAtLoginService::execArgument(row.path), row.exec) << row.path.toStdString();
    }
}

TEST(XdgAutostartTest, RegistersAndUnregistersTheEntry)
{
    QTemporaryDir home;
    const QString configHome = home.filePath(u"config"_s);
    XdgAutostartLaunchAtLoginService service(configHome, u"/opt/My Apps/orvane"_s);
    EXPECT_EQ(service.status(), Status::notRegistered);

    runTask(service.registerMainApp());
    EXPECT_EQ(service.status(), Status::enabled);
    EXPECT_EQ(service.entryPath(), configHome + u"/autostart/com.velmont.Orvane.desktop"_s);
    EXPECT_EQ(readAll(service.entryPath()), "[Desktop Entry]\nType=Application\nName=Orvane\n"
                                            "Comment=Full-screen meeting reminders\nExec=\"/opt/My Apps/orvane\" --at-login\n"
                                            "X-GNOME-Autostart-enabled=true\nNoDisplay=false\n");
    EXPECT_EQ(QFile::permissions(configHome + u"/autostart"_s) & 0x0FFF, 0x0700);
    EXPECT_EQ(QDir(configHome + u"/autostart"_s).entryList(QDir::Files | QDir::Hidden).size(), 1);

    runTask(service.unregisterMainApp());
    EXPECT_EQ(service.status(), Status::notRegistered);
    EXPECT_FALSE(QFile::exists(service.entryPath()));
    runTask(service.unregisterMainApp()); // nothing to remove is fine
}

TEST(XdgAutostartTest, ReadsAndReplacesEntriesItDidNotWrite)
{
    const struct {
        QByteArray contents;
        Status status;
    } rows[] = {
        {"[Desktop Entry]\nType=Application\nExec=/opt/old/orvane\n", Status::enabled},
        {"[Desktop Entry]\nExec=orvane\nHidden=true\n", Status::notRegistered},
        {"[Desktop Entry]\nExec=orvane\nX-GNOME-Autostart-enabled = false\n", Status::notRegistered},
        {"[Desktop Entry]\nExec=orvane\n[Desktop Action x]\nHidden=true\n", Status::enabled},
        {"[Desktop Entry]\nName=Orvane\n", Status::notRegistered},
        {"", Status::notRegistered},
    };
    for (const auto& row : rows) {
        QTemporaryDir configHome;
        XdgAutostartLaunchAtLoginService service(configHome.path(), u"/usr/bin/orvane"_s);
        ASSERT_TRUE(QDir().mkpath(configHome.filePath(u"autostart"_s)));
        ASSERT_TRUE(write(service.entryPath(), row.contents));
        EXPECT_EQ(service.status(), row.status) << row.contents.constData();
        runTask(service.registerMainApp());
        EXPECT_EQ(service.status(), Status::enabled) << row.contents.constData();
        EXPECT_TRUE(readAll(service.entryPath()).contains("Exec=\"/usr/bin/orvane\" --at-login\n"));
    }
}

TEST(XdgAutostartTest, ReportsWhatStandsInTheWay)
{
    QTemporaryDir temporary;
    const QString root = temporary.path();
    const auto entry = [&](const char* folder, const char* verb) {
        return u"The autostart entry %1/%2/autostart/com.velmont.Orvane.desktop could not be %3: "_s.arg(
            root, QLatin1StringView(folder), QLatin1StringView(verb));
    };
    const struct {
        const char* folder;
        std::function<bool()> prepare;
        QString registerError;
        std::optional<QString> unregisterError;
    } rows[] = {
        {"a", [&] { return QDir().mkpath(root + u"/a/autostart/com.velmont.Orvane.desktop"_s); },
         entry("a", "written") + u"a folder is in its place"_s, entry("a", "removed") + u"a folder is in its place"_s},
        {"b", [&] { return write(root + u"/b"_s, "x"); },
         entry("b", "written") + u"the autostart folder could not be created"_s, std::nullopt},
        {"c",
         [&] {
             return ::geteuid() != 0 && QDir().mkpath(root + u"/c/autostart"_s) &&
                    QFile::setPermissions(root + u"/c/autostart"_s, QFile::ReadOwner | QFile::ExeOwner);
         },
         entry("c", "written"), std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.folder);
        if (!row.prepare()) {
            ASSERT_EQ(::geteuid(), 0U) << "could not prepare the folder";
            continue;
        }
        XdgAutostartLaunchAtLoginService service(root + u'/' + QLatin1StringView(row.folder), u"/usr/bin/orvane"_s);
        EXPECT_EQ(service.status(), Status::notRegistered);
        const auto registered = failure(service.registerMainApp());
        ASSERT_TRUE(registered);
        EXPECT_TRUE(registered->startsWith(row.registerError)) << registered->toStdString();
        if (row.unregisterError) {
            EXPECT_EQ(failure(service.unregisterMainApp()), row.unregisterError);
        }
    }
}

TEST(BackgroundPortalTest, RequestsAreApprovalUntilThePortalAnswers)
{
    PortalMock portal;
    ASSERT_TRUE(portal.ready);
    BackgroundPortalLaunchAtLoginService service(portal.bus);
    LaunchAtLoginController controller(service);
    QSignalSpy statusChanged(&service, &LaunchAtLoginService::statusChanged);

    // Pending shows as approval; the handles name the autostart option each request asked for. Denied: unchanged.
    const struct {
        bool enable;
        QString handle;
        uint response;
        State state;
    } steps[] = {
        {true, u"orvane_launch_1_on"_s, 0, State::enabled},
        {false, u"orvane_launch_2_off"_s, 0, State::disabled},
        {true, u"orvane_launch_3_on"_s, 1, State::disabled},
    };
    for (const auto& step : steps) {
        runTask(controller.setEnabled(step.enable));
        EXPECT_EQ(controller.state(), step.enable ? State::requiresApproval : State::enabled);
        portal.respond(step.handle, step.response, step.enable && step.response == 0);
        ASSERT_TRUE(statusChanged.wait(patience)) << step.handle.toStdString();
        EXPECT_EQ(controller.state(), step.state);
    }
    EXPECT_EQ(controller.errorMessage(), std::nullopt);
    // A failed request (not a denial) leaves what the portal had.
    EXPECT_EQ(BackgroundPortalLaunchAtLoginService::statusForResponse(2, false, Status::enabled), Status::enabled);
}

TEST(BackgroundPortalTest, ReportsAMissingPortal)
{
    PortalMock bus(false);
    ASSERT_TRUE(bus.ready);
    BackgroundPortalLaunchAtLoginService service(bus.bus);
    LaunchAtLoginController controller(service);
    runTask(controller.setEnabled(true));
    EXPECT_EQ(controller.state(), State::disabled);
    ASSERT_TRUE(controller.errorMessage());
    EXPECT_TRUE(controller.errorMessage()->startsWith(
        u"The desktop's background service did not accept the request: The name org.freedesktop.portal.Desktop "_s))
        << controller.errorMessage()->toStdString();
}
