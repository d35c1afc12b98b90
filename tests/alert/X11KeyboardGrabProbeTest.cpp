// SPDX-License-Identifier: GPL-3.0-or-later
// The keyboard grab probe against a real X server (Xvfb) with a second client that grabs the keyboard the way a
// password prompt does.
#include "alert/linux/X11KeyboardGrabProbe.h"

#include "support/Patience.h"
#include "support/Xvfb.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

class X11KeyboardGrabProbeTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(xvfb.display().isEmpty()) << "Xvfb did not start"; }

    Xvfb xvfb;
    const QByteArray& display = xvfb.display();
};

TEST_F(X11KeyboardGrabProbeTest, SeesAnotherClientsGrabAndNeverHoldsOneItself)
{
    X11KeyboardGrabProbe probe(display);
    ASSERT_TRUE(probe.isConnected());
    EXPECT_FALSE(probe.anotherClientHoldsKeyboard());

    // Right after probing, anyone can take the keyboard: the probe left no grab behind.
    auto prompt = std::make_unique<X11Client>(display);
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
    EXPECT_TRUE(QTest::qWaitFor([&] { return !probe.anotherClientHoldsKeyboard(); }, patience));
    X11Client next(display);
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
