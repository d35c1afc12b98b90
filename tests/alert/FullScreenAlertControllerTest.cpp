// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/FullScreenAlertController.h"

#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/SecureEventInputActivationGate.h"
#include "fakes/FakeAlertWindowSystem.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeTimerScheduler.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

constexpr double start = 700'000'000;

class FullScreenAlertControllerTest : public ::testing::Test {
protected:
    FakeClock clock{Date{start - 60}};
    FakeTimerScheduler timers{clock};
    bool keyboardHeldElsewhere = false;
    SecureEventInputActivationGate gate{clock, timers, [this] {
                                            return keyboardHeldElsewhere;
                                        }};
    AlertPresentationAvailability monitor;
    FakeAlertWindowSystem windows;
    FullScreenAlertController controller{monitor, windows, clock, timers, gate};
    std::vector<FullScreenAlertAction> actions;

    FullScreenAlertController::ActionHandler recorder()
    {
        return [this](FullScreenAlertAction action) {
            actions.push_back(std::move(action));
        };
    }
    bool present(std::vector<MeetingOccurrence> meetings, std::optional<Date> safetyEnd = std::nullopt)
    {
        return controller.present(std::move(meetings), safetyEnd, recorder());
    }
    static std::vector<MeetingOccurrence> twoMeetings()
    {
        return {fixtures::meeting(u"Standup"_s, start, 15), fixtures::meeting(u"Review"_s, start, 60)};
    }
    static FullScreenAlertAction dismissOf(const std::vector<MeetingOccurrence>& meetings)
    {
        FullScreenAlertAction::Dismiss dismiss;
        for (const auto& meeting : meetings) {
            dismiss.meetingIDs.push_back(meeting.identity);
        }
        return {dismiss};
    }
};

TEST_F(FullScreenAlertControllerTest, NothingToShowOrNowhereToShowItChangesNothing)
{
    EXPECT_FALSE(present({}));
    monitor.setSessionActive(false);
    EXPECT_FALSE(present(twoMeetings()));
    monitor.setSessionActive(true);
    windows.displays.clear();
    EXPECT_FALSE(present(twoMeetings()));
    EXPECT_TRUE(windows.panels.empty());
    EXPECT_TRUE(actions.empty());
    EXPECT_FALSE(controller.isPresenting());
}

TEST_F(FullScreenAlertControllerTest, ShowsTakesFocusAndEscapeDismissesEveryMeetingOnce)
{
    ASSERT_TRUE(present(twoMeetings()));
    const auto panel = windows.alertPanel();
    ASSERT_TRUE(panel);
    EXPECT_TRUE(panel->visible);
    EXPECT_TRUE(panel->key);
    EXPECT_EQ(panel->focusAnnouncements, 1);
    EXPECT_TRUE(windows.announcements.empty());
    EXPECT_TRUE(controller.isPresenting());

    windows.pressEscape();
    windows.pressEscape();
    panel->content.onEscape();
    ASSERT_EQ(actions.size(), 1u);
    EXPECT_EQ(actions[0], dismissOf(twoMeetings()));
    EXPECT_TRUE(panel->destroyed);
    EXPECT_FALSE(controller.isPresenting());
    EXPECT_EQ(windows.activated, std::vector{*windows.foreignWindow}) << "focus goes back to the window it took";
}

TEST_F(FullScreenAlertControllerTest, KeyboardHeldElsewhereDefersFocusAndEscapeDoesNothingUntilFocused)
{
    keyboardHeldElsewhere = true;
    ASSERT_TRUE(present(twoMeetings()));
    const auto panel = windows.alertPanel();
    EXPECT_TRUE(panel->visible);
    EXPECT_FALSE(panel->key);
    EXPECT_EQ(windows.announcements, std::vector{FullScreenAlertController::keyboardUnavailableAnnouncement});
    windows.pressEscape();
    EXPECT_TRUE(actions.empty());

    keyboardHeldElsewhere = false;
    timers.advanceTo(clock.now() + 0.25);
    EXPECT_TRUE(panel->key);
    windows.pressEscape();
    EXPECT_EQ(actions.size(), 1u);
}

TEST_F(FullScreenAlertControllerTest, ViewActionsAreDeliveredExactlyOnce)
{
    ASSERT_TRUE(present(twoMeetings()));
    const auto panel = windows.alertPanel();
    const FullScreenAlertAction join{FullScreenAlertAction::Join{twoMeetings()[1]}};
    panel->content.onAction(join);
    panel->content.onAction(dismissOf(twoMeetings()));
    EXPECT_EQ(actions, std::vector{join});
}

TEST_F(FullScreenAlertControllerTest, ReplacementDropsTheFirstHandlerAndRestoresTheOriginalWindow)
{
    bool firstCalled = false;
    ASSERT_TRUE(controller.present(twoMeetings(), std::nullopt, [&](FullScreenAlertAction) { firstCalled = true; }));
    const auto first = windows.alertPanel();
    // The alert now has focus, so the frontmost window is Orvane's own; it must not become the one to restore.
    windows.foreignWindow = AlertForeignWindow{0x999};
    ASSERT_TRUE(present({fixtures::meeting(u"Later"_s, start + 300)}));
    EXPECT_TRUE(first->destroyed);
    EXPECT_TRUE(windows.activated.empty()) << "replacing must not hand focus away";

    windows.pressEscape();
    EXPECT_FALSE(firstCalled);
    ASSERT_EQ(actions.size(), 1u);
    EXPECT_EQ(windows.activated, std::vector{AlertForeignWindow{0x400001}});
}

TEST_F(FullScreenAlertControllerTest, SwitchingAwayMeansAnsweringDoesNotPullTheUserBack)
{
    ASSERT_TRUE(present(twoMeetings()));
    windows.setApplicationActive(false);
    EXPECT_FALSE(windows.alertPanel()->allowsFocus);
    windows.alertPanel()->content.onAction(dismissOf(twoMeetings()));
    EXPECT_EQ(actions.size(), 1u);
    EXPECT_TRUE(windows.activated.empty());
}

TEST_F(FullScreenAlertControllerTest, ReactivationRefocusesOnlyAfterTheDelay)
{
    ASSERT_TRUE(present(twoMeetings()));
    windows.setApplicationActive(false);
    windows.setApplicationActive(true);
    const auto panel = windows.alertPanel();
    EXPECT_FALSE(panel->key);
    timers.advanceTo(clock.now() + 0.99);
    EXPECT_FALSE(panel->key);
    timers.advanceTo(clock.now() + 0.02);
    EXPECT_TRUE(panel->key);
}

struct SafetyCase {
    const char* name;
    double safetyEndOffset; // from the meetings' start
    double now;             // offset from the start when checked
    std::vector<int> expectedExpired;
    bool shown;
};

class SafetyExpiryTest : public FullScreenAlertControllerTest, public ::testing::WithParamInterface<SafetyCase> {};

TEST_P(SafetyExpiryTest, ExpiresWithTheMeetingsThatEnded)
{
    const auto& param = GetParam();
    // Standup ends 15 minutes after the start, Review after 60.
    clock.set(Date{start + (param.shown ? -60 : param.now)});
    const auto meetings = twoMeetings();
    EXPECT_EQ(present(meetings, Date{start + param.safetyEndOffset}), param.shown);
    if (param.shown) {
        EXPECT_TRUE(actions.empty());
        timers.advanceTo(Date{start + param.now});
    }
    ASSERT_EQ(actions.size(), 1u);
    FullScreenAlertAction::Expired expected;
    for (const int index : param.expectedExpired) {
        expected.meetingIDs.push_back(meetings[index].identity);
    }
    EXPECT_EQ(actions[0], FullScreenAlertAction{expected});
    EXPECT_TRUE(windows.livePanels().empty());
}

INSTANTIATE_TEST_SUITE_P(Cases, SafetyExpiryTest,
                         ::testing::Values(SafetyCase{"NoneEndedCarriesAll", 600, 600, {0, 1}, true},
                                           SafetyCase{"OneEndedCarriesOnlyIt", 1200, 1200, {0}, true},
                                           SafetyCase{"PastAtPresentationExpiresAtOnce", 100, 200, {0, 1}, false},
                                           SafetyCase{"ExactlyNowExpiresAtOnce", 100, 100, {0, 1}, false}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(FullScreenAlertControllerTest, UnavailableDisplayHidesTheAlertAndWakingRefocusesAfterOneSecond)
{
    ASSERT_TRUE(present(twoMeetings()));
    const auto panel = windows.alertPanel();
    monitor.setScreensAwake(false);
    EXPECT_FALSE(panel->visible);
    EXPECT_FALSE(panel->key);
    EXPECT_TRUE(controller.isPresenting());

    const Date woke = clock.now();
    monitor.setScreensAwake(true);
    EXPECT_TRUE(panel->visible);
    EXPECT_FALSE(panel->key);
    timers.advanceTo(woke + 0.999);
    EXPECT_FALSE(panel->key);
    timers.advanceTo(woke + 1.0);
    EXPECT_TRUE(panel->key);
}

TEST_F(FullScreenAlertControllerTest, LockingWhileKeyboardRetryIsPendingCancelsTheRetry)
{
    keyboardHeldElsewhere = true;
    ASSERT_TRUE(present(twoMeetings()));
    monitor.setSessionActive(false);
    keyboardHeldElsewhere = false;
    timers.advanceTo(clock.now() + 30);
    EXPECT_FALSE(windows.alertPanel()->key);
    EXPECT_FALSE(windows.alertPanel()->visible);
}

TEST_F(FullScreenAlertControllerTest, SafetyEndPassedWhileHiddenExpiresOnReturn)
{
    ASSERT_TRUE(present(twoMeetings(), Date{start + 600}));
    monitor.setSystemAwake(false);
    clock.set(Date{start + 7200}); // slept through the safety timer: nothing fired while asleep
    monitor.setSystemAwake(true);
    ASSERT_EQ(actions.size(), 1u);
    EXPECT_TRUE(std::holds_alternative<FullScreenAlertAction::Expired>(actions[0].value));
}

struct DisplayCase {
    const char* name;
    std::optional<std::uint32_t> activeDisplay;
    std::uint32_t expected;
};

class DisplayChoiceTest : public FullScreenAlertControllerTest, public ::testing::WithParamInterface<DisplayCase> {};

TEST_P(DisplayChoiceTest, CoversTheDisplayOfTheActiveApplication)
{
    windows.displays = {{7, {0, 0, 1280, 800}}, {9, {1280, 0, 1920, 1080}}};
    windows.activeDisplay = GetParam().activeDisplay;
    ASSERT_TRUE(present(twoMeetings()));
    EXPECT_EQ(windows.alertPanel()->screen.displayID, GetParam().expected);
    EXPECT_EQ(controller.targetDisplayID(), GetParam().expected);
    EXPECT_EQ(windows.livePanels().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Cases, DisplayChoiceTest,
                         ::testing::Values(DisplayCase{"Active", 9, 9}, DisplayCase{"UnknownFallsBackToFirst", 3, 7},
                                           DisplayCase{"NoneFallsBackToFirst", std::nullopt, 7}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(FullScreenAlertControllerTest, ReplacementStaysOnTheFirstAlertsDisplay)
{
    windows.displays = {{7, {0, 0, 1280, 800}}, {9, {1280, 0, 1920, 1080}}};
    windows.activeDisplay = 9;
    ASSERT_TRUE(present(twoMeetings()));
    windows.activeDisplay = 7;
    ASSERT_TRUE(present(twoMeetings()));
    EXPECT_EQ(windows.alertPanel()->screen.displayID, 9u);
}

TEST_F(FullScreenAlertControllerTest, AllDisplaysGetBackdropsThatFollowDisplayChanges)
{
    windows.displays = {{7, {0, 0, 1280, 800}}, {9, {1280, 0, 1920, 1080}}, {11, {3200, 0, 1280, 1024}}};
    windows.activeDisplay = 9;
    controller.setShowsOnAllDisplays(true);
    ASSERT_TRUE(present(twoMeetings()));
    auto live = windows.livePanels();
    ASSERT_EQ(live.size(), 3u);
    EXPECT_EQ(windows.alertPanel()->screen.displayID, 9u);
    for (const auto& panel : live) {
        EXPECT_TRUE(panel->visible);
        EXPECT_EQ(panel->hasControls(), panel->screen.displayID == 9u);
    }

    // The alert's display is unplugged: the alert moves to the first display and the backdrops rearrange.
    windows.setDisplays({{7, {0, 0, 1280, 800}}, {11, {3200, 0, 1280, 1024}}});
    live = windows.livePanels();
    ASSERT_EQ(live.size(), 2u);
    EXPECT_EQ(windows.alertPanel()->screen.displayID, 7u);

    controller.setShowsOnAllDisplays(false);
    EXPECT_EQ(windows.livePanels().size(), 1u);
    windows.pressEscape();
    EXPECT_TRUE(windows.livePanels().empty());
}

TEST_F(FullScreenAlertControllerTest, DisplayChangesWhileLockedDoNotRevealTheAlert)
{
    ASSERT_TRUE(present(twoMeetings()));
    monitor.setSessionActive(false);
    windows.setDisplays({{5, {0, 0, 800, 600}}});
    EXPECT_FALSE(windows.alertPanel()->visible);
    EXPECT_EQ(windows.alertPanel()->screen.displayID, 5u);
}

TEST_F(FullScreenAlertControllerTest, ClosingWithoutAnActionCallsNoHandlerAndGivesFocusBack)
{
    ASSERT_TRUE(present(twoMeetings()));
    controller.closeWithoutAction();
    EXPECT_TRUE(windows.livePanels().empty());
    EXPECT_TRUE(actions.empty());
    EXPECT_EQ(windows.activated, std::vector{*windows.foreignWindow});
    EXPECT_FALSE(controller.isPresenting());
}

TEST_F(FullScreenAlertControllerTest, AHandlerMayPresentAgainFromItsCallback)
{
    ASSERT_TRUE(controller.present(twoMeetings(), std::nullopt, [&](FullScreenAlertAction) {
        EXPECT_TRUE(present({fixtures::meeting(u"Snoozed"_s, start)}));
    }));
    windows.pressEscape();
    EXPECT_TRUE(controller.isPresenting());
    EXPECT_EQ(controller.meetings().front().title, u"Snoozed"_s);
}

} // namespace
