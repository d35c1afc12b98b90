// SPDX-License-Identifier: GPL-3.0-or-later
// The Qt window system of the alert on Qt's offscreen platform, given two displays side by side.
#include "alert/linux/QtAlertWindowSystem.h"

#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeTimerScheduler.h"
#include "support/MeetingFixtures.h"
#include "support/Patience.h"
#include "support/QtPrinters.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

// Runs before the shared main, which keeps a platform that is already chosen: offscreen with the displays
// "A" (1280×800 at 0,0) and "B" (1920×1080 at 1280,0).
[[maybe_unused]] const bool twoScreens = [] {
    setenv("QT_QPA_PLATFORM", "offscreen:configfile=" ORVANE_TEST_DATA_DIR "/two-screens.json", 1);
    return true;
}();

const QRect frameA{0, 0, 1280, 800};
const QRect frameB{1280, 0, 1920, 1080};

struct CreatedPanel {
    QPointer<QQuickWindow> window;
    bool hasControls = false;
};

class QtAlertWindowSystemTest : public ::testing::Test {
protected:
    std::vector<CreatedPanel> created;
    QtAlertWindowSystem windows{[this](QQuickWindow& window, const AlertPanelContent& content) {
        created.push_back({&window, !content.meetings.empty()});
    }};

    AlertScreenDescriptor screenWithFrame(const QRect& frame) const
    {
        for (const auto& screen : windows.screens()) {
            if (screen.frame == frame) {
                return screen;
            }
        }
        ADD_FAILURE() << "no screen at " << frame.x() << "," << frame.y();
        return {};
    }
};

TEST_F(QtAlertWindowSystemTest, ListsEveryDisplayWithItsFrameAndAStableIdentifier)
{
    const auto screens = windows.screens();
    ASSERT_EQ(screens.size(), 2u);
    EXPECT_EQ(screens[0].frame, frameA);
    EXPECT_EQ(screens[1].frame, frameB);
    EXPECT_NE(screens[0].displayID, screens[1].displayID);
    for (const auto& screen : screens) {
        EXPECT_NE(screen.displayID, 0u);
    }
    // Another object (as after a restart) names the same displays the same way.
    QtAlertWindowSystem other{{}};
    EXPECT_EQ(other.screens(), screens);
    EXPECT_TRUE(windows.activeDisplayID().has_value());
    EXPECT_FALSE(windows.frontmostForeignWindow().has_value()) << "offscreen has no other applications";
}

TEST_F(QtAlertWindowSystemTest, PanelCoversExactlyItsDisplayAndMovesWithIt)
{
    auto panel = windows.createPanel(screenWithFrame(frameB), {});
    ASSERT_EQ(created.size(), 1u);
    QQuickWindow* window = created[0].window;
    EXPECT_FALSE(window->isVisible()) << "a new panel waits to be ordered front";
    EXPECT_EQ(window->title(), u"Meeting reminder"_s);

    panel->orderFrontRegardless();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->geometry(), frameB);

    panel->setScreen(screenWithFrame(frameA));
    EXPECT_EQ(window->geometry(), frameA);

    panel->orderOut();
    EXPECT_FALSE(window->isVisible());
    panel.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(created[0].window.isNull()) << "the window goes with its panel";
}

TEST_F(QtAlertWindowSystemTest, EscapeAnswersOnlyWhileThePanelMayTakeFocusAndMayEndThePanel)
{
    int escapes = 0;
    std::unique_ptr<AlertPanel> panel;
    panel = windows.createPanel(
        screenWithFrame(frameA),
        {.meetings = {fixtures::meeting(u"Standup"_s, 700'000'000, 15)}, .onAction = {}, .onEscape = [&] {
             ++escapes;
             panel.reset();
         }});
    QQuickWindow* window = created.at(0).window;
    panel->orderFrontRegardless();

    EXPECT_FALSE(panel->allowsKeyboardFocus());
    EXPECT_TRUE(window->flags().testFlag(Qt::WindowDoesNotAcceptFocus));
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_EQ(escapes, 0) << "keys are dropped while the panel may not take focus";

    panel->setAllowsKeyboardFocus(true);
    EXPECT_FALSE(window->flags().testFlag(Qt::WindowDoesNotAcceptFocus));
    QTest::keyClick(window, Qt::Key_Escape);
    EXPECT_EQ(escapes, 1);
    EXPECT_EQ(panel, nullptr);
    // The window outlived its panel's destruction inside its own key handler; it goes once events run.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(created[0].window.isNull());
}

TEST_F(QtAlertWindowSystemTest, ViewShortcutsFireOnlyWhileThePanelMayTakeFocus)
{
    auto panel =
        windows.createPanel(screenWithFrame(frameA), {.meetings = {fixtures::meeting(u"Standup"_s, 700'000'000, 15)}});
    QQuickWindow* window = created.at(0).window;
    // Return joins in the real view; a shortcut of the same kind stands in for it here.
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nItem { id: root; property int fired: 0\n"
                      "Shortcut { sequence: \"Return\"; context: Qt.WindowShortcut; onActivated: root.fired++ } }",
                      QUrl());
    std::unique_ptr<QObject> view(component.create());
    ASSERT_TRUE(view) << component.errorString().toStdString();
    auto* item = qobject_cast<QQuickItem*>(view.get());
    item->setParentItem(window->contentItem());
    // The panel had the keyboard and is told to hold keys back again (Orvane became active anew, or the display
    // returned): it stays the focused window for a moment, and Return must not join meanwhile.
    panel->setAllowsKeyboardFocus(true);
    panel->orderFrontRegardless();
    window->requestActivate();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window, patience));
    // As when a button of the view has keyboard focus: Qt then asks that item, not the window, about shortcuts.
    item->forceActiveFocus();
    panel->setAllowsKeyboardFocus(false);

    QTest::keyClick(window, Qt::Key_Return);
    EXPECT_EQ(view->property("fired").toInt(), 0) << "a stray Return must not join while keys are held back";
    panel->setAllowsKeyboardFocus(true);
    QTest::keyClick(window, Qt::Key_Return);
    EXPECT_EQ(view->property("fired").toInt(), 1);
}

TEST_F(QtAlertWindowSystemTest, ControllerCoversEveryDisplayWithOnePanelOfControls)
{
    FakeClock clock{Date{700'000'000 - 60}};
    FakeTimerScheduler timers{clock};
    SecureEventInputActivationGate gate{clock, timers, [] {
                                            return false;
                                        }};
    AlertPresentationAvailability monitor;
    FullScreenAlertController controller{monitor, windows, clock, timers, gate};
    controller.setShowsOnAllDisplays(true);

    ASSERT_TRUE(controller.present({fixtures::meeting(u"Standup"_s, 700'000'000, 15)}, std::nullopt, {}));

    std::vector<QRect> covered;
    int withControls = 0;
    for (const auto& panel : created) {
        if (panel.window && panel.window->isVisible()) {
            covered.push_back(panel.window->geometry());
            withControls += panel.hasControls ? 1 : 0;
        }
    }
    std::sort(covered.begin(), covered.end(), [](const QRect& a, const QRect& b) { return a.x() < b.x(); });
    EXPECT_EQ(covered, (std::vector<QRect>{frameA, frameB}));
    EXPECT_EQ(withControls, 1);
}

} // namespace
