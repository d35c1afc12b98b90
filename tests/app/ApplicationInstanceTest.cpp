// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/ApplicationInstanceLock.h"
#include "app/ApplicationInstanceLockError.h"
#include "app/linux/DBusApplicationActivation.h"
#include "support/EdsTestSession.h"
#include "support/Patience.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

mode_t modeOf(const QString& path)
{
    struct stat status {};
    EXPECT_EQ(::lstat(QFile::encodeName(path).constData(), &status), 0);
    return status.st_mode & 07777;
}

class ApplicationInstanceLockTest : public ::testing::Test {
protected:
    QTemporaryDir directory;
    QString path = directory.filePath(u"application-instance.lock"_s);
    ApplicationInstanceFileLock lock{path};
};

TEST_F(ApplicationInstanceLockTest, OneLeaseAtATimeAndTheFileStaysPrivate)
{
    auto lease = lock.acquire();
    ASSERT_TRUE(lease);
    EXPECT_EQ(modeOf(path), 0600u);
    // flock belongs to the open file, so a second open in this very process is a second copy as far as it goes.
    EXPECT_FALSE(ApplicationInstanceFileLock(path).acquire());
    lease.reset();

    ::chmod(QFile::encodeName(path).constData(), 0644);
    EXPECT_TRUE(lock.acquire());
    EXPECT_EQ(modeOf(path), 0600u) << "the mode is put right on every start";
}

TEST_F(ApplicationInstanceLockTest, ACrashedHolderLeavesTheFileButNotTheLock)
{
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        auto lease = ApplicationInstanceFileLock(path).acquire();
        const char byte = lease ? 'y' : 'n';
        [[maybe_unused]] const auto written = ::write(ready[1], &byte, 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    EXPECT_FALSE(lock.acquire()) << "held by the other process";
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_TRUE(lock.acquire());
}

struct UnsafeCase {
    const char* name;
    std::function<void(const QByteArray& path)> plant;
    ApplicationInstanceLockError expected;
};

class UnsafeLockFileTest : public ApplicationInstanceLockTest, public ::testing::WithParamInterface<UnsafeCase> {};

TEST_P(UnsafeLockFileTest, RefusesWhatIsNotAPrivateRegularFile)
{
    GetParam().plant(QFile::encodeName(path));
    try {
        lock.acquire();
        FAIL() << "acquired a lease over an unsafe lock file";
    } catch (const ApplicationInstanceLockError& error) {
        EXPECT_EQ(error, GetParam().expected) << error.description().toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, UnsafeLockFileTest,
    ::testing::Values(UnsafeCase{"SymbolicLink",
                                 [](const QByteArray& path) { ::symlink("/tmp/elsewhere", path.constData()); },
                                 ApplicationInstanceLockError(ApplicationInstanceLockError::Posix{ELOOP})},
                      UnsafeCase{"Directory", [](const QByteArray& path) { ::mkdir(path.constData(), 0700); },
                                 ApplicationInstanceLockError(ApplicationInstanceLockError::Posix{EISDIR})},
                      UnsafeCase{"NamedPipe", [](const QByteArray& path) { ::mkfifo(path.constData(), 0600); },
                                 ApplicationInstanceLockError(ApplicationInstanceLockError::UnsafeLockFile{})},
                      UnsafeCase{"AnotherUsersFile",
                                 [](const QByteArray& path) {
                                     ::close(::open(path.constData(), O_CREAT | O_WRONLY, 0600));
                                     // The suite runs as root in CI; as another user chown fails and the case is moot.
                                     if (::chown(path.constData(), 65534, 65534) != 0) {
                                         GTEST_SKIP() << "cannot give a file away without privileges";
                                     }
                                 },
                                 ApplicationInstanceLockError(ApplicationInstanceLockError::UnsafeLockFile{})}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ApplicationInstanceDirectoryTest, DataDirectoryLockIsPrivate)
{
    QTemporaryDir dataHome;
    qputenv("XDG_DATA_HOME", QFile::encodeName(dataHome.path()));
    const QString directory = dataHome.filePath(u"com.velmont.Orvane"_s);
    ::mkdir(QFile::encodeName(directory).constData(), 0755);
    ApplicationInstanceFileLock lock;
    EXPECT_EQ(lock.lockFilePath(), directory + u"/application-instance.lock"_s);
    EXPECT_TRUE(lock.acquire());
    EXPECT_EQ(modeOf(directory), 0700u);
    qunsetenv("XDG_DATA_HOME");
}

struct RecordingActivator final : ApplicationActivating {
    int activations = 0;
    void activateRunningInstance() override { ++activations; }
};

struct ScriptedLock final : ApplicationInstanceLocking {
    std::function<std::unique_ptr<ApplicationInstanceLease>()> next;
    std::unique_ptr<ApplicationInstanceLease> acquire() override { return next(); }
};

TEST(ApplicationInstanceGateTest, ActivatesTheRunningCopyUnlessThisOneMayRun)
{
    struct Case {
        const char* name;
        std::function<std::unique_ptr<ApplicationInstanceLease>()> acquire;
        bool runs;
    };
    const Case cases[] = {
        {"free", [] { return std::make_unique<ApplicationInstanceLease>(); }, true},
        {"held", [] { return nullptr; }, false},
        {"unsafe",
         []() -> std::unique_ptr<ApplicationInstanceLease> {
             throw ApplicationInstanceLockError(ApplicationInstanceLockError::UnsafeLockFile{});
         },
         false},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        ScriptedLock lock;
        lock.next = testCase.acquire;
        RecordingActivator activator;
        QStringList errors;
        ApplicationInstanceGate gate(lock, activator, [&](const QString& error) { errors.append(error); });
        EXPECT_EQ(static_cast<bool>(gate.acquireOrActivate()), testCase.runs);
        EXPECT_EQ(activator.activations, testCase.runs ? 0 : 1);
        EXPECT_EQ(errors.size(), std::string_view(testCase.name) == "unsafe" ? 1 : 0);
    }
}

TEST(DBusApplicationActivationTest, ASecondLaunchAsksTheRunningCopyToReopen)
{
    EdsTestSession bus;
    bus.start();
    const auto first = QDBusConnection::connectToBus(QString::fromStdString(bus.busAddress()), u"first"_s);
    DBusApplicationService service(first);
    ASSERT_TRUE(service.registerOnBus());
    DBusApplicationService rival(QDBusConnection::connectToBus(QString::fromStdString(bus.busAddress()), u"rival"_s));
    EXPECT_FALSE(rival.registerOnBus()) << "the name belongs to the running copy";

    QSignalSpy reopened(&service, &DBusApplicationService::reopenRequested);
    // The launcher's token travels along: without it a Wayland compositor lets no window come forward.
    qputenv("XDG_ACTIVATION_TOKEN", "launcher-token-1");
    // The second copy blocks on its call, as it does before it exits; the running copy answers from its event loop.
    std::thread second([address = bus.busAddress()] {
        DBusApplicationActivator(QDBusConnection::connectToBus(QString::fromStdString(address), u"second"_s))
            .activateRunningInstance();
    });
    EXPECT_TRUE(reopened.wait(patience));
    second.join();
    qunsetenv("XDG_ACTIVATION_TOKEN");
    ASSERT_EQ(reopened.size(), 1);
    EXPECT_EQ(reopened[0][0].toString(), u"launcher-token-1"_s);

    // With no running copy the activator simply returns.
    QDBusConnection::disconnectFromBus(u"first"_s);
    DBusApplicationActivator(QDBusConnection::connectToBus(QString::fromStdString(bus.busAddress()), u"third"_s))
        .activateRunningInstance();
}

} // namespace
