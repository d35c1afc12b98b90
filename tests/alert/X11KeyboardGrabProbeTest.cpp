// SPDX-License-Identifier: GPL-3.0-or-later
// The keyboard grab probe against a real X server (Xvfb) with a second client that grabs the keyboard the way a
// password prompt does.
#include "alert/linux/X11KeyboardGrabProbe.h"

#include <QProcess>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

/// Another X client with a mapped window of its own, as a password dialog would have.
class OtherClient {
public:
    explicit OtherClient(const QByteArray& display)
        : m_connection(xcb_connect(display.constData(), nullptr))
    {
        if (xcb_connection_has_error(m_connection) != 0) {
            return;
        }
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        m_window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen->root, 0, 0, 200, 100, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
        xcb_map_window(m_connection, m_window);
        xcb_flush(m_connection);
    }
    ~OtherClient() { xcb_disconnect(m_connection); }

    /// Asks for an active keyboard grab and returns the server's answer (an xcb_grab_status_t).
    int grabKeyboard()
    {
        const auto cookie =
            xcb_grab_keyboard(m_connection, 0, m_window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        auto* reply = xcb_grab_keyboard_reply(m_connection, cookie, nullptr);
        const int status = reply ? reply->status : -1;
        std::free(reply);
        return status;
    }
    void ungrabKeyboard()
    {
        xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
        xcb_aux_sync();
    }

private:
    void xcb_aux_sync()
    {
        std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

    xcb_connection_t* m_connection;
    xcb_window_t m_window = 0;
};

class X11KeyboardGrabProbeTest : public testing::Test {
protected:
    void SetUp() override
    {
        // -displayfd 1: Xvfb picks a free display number and prints it once it accepts clients.
        m_xvfb.start(u"Xvfb"_s,
                     {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1280x800x24"_s, u"-nolisten"_s, u"tcp"_s});
        ASSERT_TRUE(m_xvfb.waitForReadyRead(15'000)) << "Xvfb did not start";
        display = ":" + m_xvfb.readLine().trimmed();
    }
    void TearDown() override
    {
        m_xvfb.terminate();
        m_xvfb.waitForFinished();
    }

    QByteArray display;

private:
    QProcess m_xvfb;
};

TEST_F(X11KeyboardGrabProbeTest, SeesAnotherClientsGrabAndNeverHoldsOneItself)
{
    X11KeyboardGrabProbe probe(display);
    ASSERT_TRUE(probe.isConnected());
    EXPECT_FALSE(probe.anotherClientHoldsKeyboard());

    // Right after probing, anyone can take the keyboard: the probe left no grab behind.
    auto prompt = std::make_unique<OtherClient>(display);
    ASSERT_EQ(prompt->grabKeyboard(), XCB_GRAB_STATUS_SUCCESS);
    for (int probing = 0; probing < 3; ++probing) {
        EXPECT_TRUE(probe.anotherClientHoldsKeyboard());
    }

    prompt->ungrabKeyboard();
    EXPECT_FALSE(probe.anotherClientHoldsKeyboard());
    EXPECT_EQ(prompt->grabKeyboard(), XCB_GRAB_STATUS_SUCCESS);
    EXPECT_TRUE(probe.anotherClientHoldsKeyboard());

    // A client that ends loses its grab (once the server has noticed the closed connection).
    prompt.reset();
    EXPECT_TRUE(QTest::qWaitFor([&] { return !probe.anotherClientHoldsKeyboard(); }, 5'000));
    OtherClient next(display);
    EXPECT_EQ(next.grabKeyboard(), XCB_GRAB_STATUS_SUCCESS);
}

TEST(X11KeyboardGrabProbeWithoutX11Test, ReportsNothingOffX11)
{
    // The tests run on Qt's offscreen platform, which has no X connection.
    X11KeyboardGrabProbe probe;
    EXPECT_FALSE(probe.isConnected());
    EXPECT_FALSE(probe.anotherClientHoldsKeyboard());
    X11KeyboardGrabProbe unreachable("unreachable-host-name:99"_ba);
    EXPECT_FALSE(unreachable.anotherClientHoldsKeyboard());
}

} // namespace
