// SPDX-License-Identifier: GPL-3.0-or-later
// Screen sharing as the PipeWire graph shows it, against a real PipeWire daemon of the test's own, with a live video
// node made by GStreamer standing in for a portal's screen cast.
#include "alert/linux/PipeWireScreenCastMonitor.h"

#include "support/Patience.h"

#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace orvane {
namespace {

TEST(PipeWireScreenCastMonitor, TellsScreenCastsFromOtherNodes)
{
    struct Case {
        QString name;
        QString mediaClass;
        bool screenCast;
    };
    const Case cases[] = {
        {u"xdpw-stream-42"_s, u"Video/Source"_s, true},
        {u"meta-screen-cast-src"_s, u"Stream/Output/Video"_s, true},
        {u"xdph-streaming-3"_s, u"Video/Source"_s, true},
        // A camera, and a screen-cast name on an audio node.
        {u"v4l2_input.pci-0000_00_14.0-usb-0_1_1.0"_s, u"Video/Source"_s, false},
        {u"xdpw-stream-42"_s, u"Audio/Source"_s, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PipeWireScreenCastMonitor::isScreenCastNode(c.name, c.mediaClass), c.screenCast) << c.name.toStdString();
    }
}

/// A PipeWire daemon in a runtime folder of its own.
class PipeWireTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (QStandardPaths::findExecutable(u"pipewire"_s).isEmpty() ||
            QStandardPaths::findExecutable(u"gst-launch-1.0"_s).isEmpty()) {
            GTEST_FAIL() << "pipewire and gst-launch-1.0 are needed (scripts/setup-debian.sh installs them)";
        }
        m_previousRuntime = qgetenv("XDG_RUNTIME_DIR");
        qputenv("XDG_RUNTIME_DIR", m_runtime.path().toUtf8());
        qunsetenv("PIPEWIRE_REMOTE");
        m_daemon.setProcessChannelMode(QProcess::ForwardedChannels);
        m_daemon.start(u"pipewire"_s, {});
        ASSERT_TRUE(QTest::qWaitFor([&] { return QFile::exists(m_runtime.filePath(u"pipewire-0"_s)); }, patience));
    }
    void TearDown() override
    {
        for (QProcess* process : {&m_node, &m_daemon}) {
            process->kill();
            process->waitForFinished();
        }
        qputenv("XDG_RUNTIME_DIR", m_previousRuntime);
    }

    /// A live video source node named like a portal's screen cast.
    void startScreenCast()
    {
        m_node.start(u"gst-launch-1.0"_s,
                     {u"videotestsrc"_s, u"is-live=true"_s, u"!"_s, u"pipewiresink"_s,
                      u"stream-properties=props,media.class=Video/Source,node.name=xdpw-stream-test"_s});
    }

    QTemporaryDir m_runtime;
    QByteArray m_previousRuntime;
    QProcess m_daemon;
    QProcess m_node;
};

TEST_F(PipeWireTest, FollowsAScreenCastThatStartsAndEndsAndTheDaemonGoing)
{
    PipeWireScreenCastMonitor monitor;
    ASSERT_TRUE(monitor.isConnected());
    QSignalSpy shared(&monitor, &PipeWireScreenCastMonitor::screenSharedChanged);
    QSignalSpy connection(&monitor, &PipeWireScreenCastMonitor::connectionChanged);

    startScreenCast();
    ASSERT_TRUE(QTest::qWaitFor([&] { return monitor.isScreenShared(); }, patience));
    m_node.kill();
    ASSERT_TRUE(m_node.waitForFinished(patience));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !monitor.isScreenShared(); }, patience));
    EXPECT_EQ(shared.size(), 2);

    // A share that is live when the daemon goes ends with it.
    startScreenCast();
    ASSERT_TRUE(QTest::qWaitFor([&] { return monitor.isScreenShared(); }, patience));
    m_daemon.kill();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !monitor.isConnected(); }, patience));
    EXPECT_FALSE(monitor.isScreenShared());
    EXPECT_EQ(connection.size(), 1);
}

} // namespace
} // namespace orvane
