// SPDX-License-Identifier: GPL-3.0-or-later
#include "scheduling/AlertScheduler.h"

#include "domain/Overloaded.h"
#include "fakes/FakeCalendarProvider.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeTimerScheduler.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace orvane;
using Operation = AlertSchedulerFailure::Operation;

namespace {

constexpr double t0 = 700'000'000;

/// A scheduler over real stores in a temporary file, with a fake clock, timers and calendars, recording every
/// event it sends.
struct Harness {
    explicit Harness(const std::function<void(TemporaryDefaults&)>& before = {})
    {
        if (before) {
            before(defaults);
        }
        settings = std::make_unique<SettingsStore>(defaults.database());
        exclusions = std::make_unique<ExclusionStore>(defaults.database());
        delivery = std::make_unique<DeliveryStore>(defaults.database());
        scheduler = std::make_unique<AlertScheduler>(calendars, *settings, *exclusions, *delivery, timers, clock);
        scheduler->setEventHandler([this](const AlertSchedulerEvent& event) {
            events.push_back(event);
            if (onEvent) {
                onEvent(event);
            }
        });
    }

    void start() { scheduler->start(); }

    std::vector<AlertBatch> dueBatches() const
    {
        std::vector<AlertBatch> batches;
        for (const auto& event : events) {
            if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
                batches.push_back(due->batch);
            }
        }
        return batches;
    }

    std::vector<AlertSchedulerFailure> failures() const
    {
        std::vector<AlertSchedulerFailure> result;
        for (const auto& event : events) {
            if (const auto* failed = std::get_if<AlertSchedulerEvent::Failed>(&event.value)) {
                result.push_back(failed->failure);
            }
        }
        return result;
    }

    TemporaryDefaults defaults;
    std::unique_ptr<SettingsStore> settings;
    std::unique_ptr<ExclusionStore> exclusions;
    std::unique_ptr<DeliveryStore> delivery;
    FakeClock clock{Date{t0}};
    FakeTimerScheduler timers{clock};
    FakeCalendarProvider calendars;
    std::unique_ptr<AlertScheduler> scheduler;
    std::vector<AlertSchedulerEvent> events;
    std::function<void(const AlertSchedulerEvent&)> onEvent;
};

TEST(AlertScheduler, RetryDelayDoublesUpToFifteenMinutes)
{
    const std::pair<int, double> table[] = {{1, 60}, {2, 120}, {3, 240}, {4, 480}, {5, 900}, {6, 900}, {40, 900}};
    for (const auto& [failures, delay] : table) {
        EXPECT_EQ(AlertScheduler::retryDelay(failures), delay) << failures;
    }
}

TEST(AlertScheduler, FailedFetchesBackOffAndOneSuccessResetsTheCount)
{
    Harness harness;
    harness.calendars.meetings = {fixtures::meeting(u"external:later"_s, t0 + 7200)};
    harness.calendars.failingFetches = 5;
    harness.start();

    for (const double delay : {60.0, 120.0, 240.0, 480.0, 900.0}) {
        ASSERT_EQ(harness.timers.armed(), std::vector{harness.clock.now() + delay});
        EXPECT_FALSE(harness.scheduler->nextTriggerDate());
        EXPECT_FALSE(harness.scheduler->isRefreshing());
        harness.timers.advanceTo(harness.clock.now() + delay);
    }
    // The sixth fetch succeeded: the timer now waits for the meeting, and the next failure starts over at 60 s.
    EXPECT_EQ(harness.scheduler->nextTriggerDate(), Date{t0 + 7200});
    ASSERT_EQ(harness.scheduler->upcoming().size(), 1U);
    harness.calendars.failingFetches = 1;
    harness.scheduler->refresh();
    EXPECT_EQ(harness.timers.armed(), std::vector{harness.clock.now() + 60});
    EXPECT_EQ(harness.scheduler->upcoming().size(), 1U) << "a failed fetch keeps the last list";

    const auto failures = harness.failures();
    ASSERT_EQ(failures.size(), 6U);
    for (const auto& failure : failures) {
        EXPECT_EQ(failure.operation, Operation::fetchingMeetings);
        EXPECT_EQ(failure.underlyingError, u"The calendar service is unavailable."_s);
    }
}

TEST(AlertScheduler, WithNothingAheadItWakesAfterADay)
{
    Harness harness;
    harness.start();
    EXPECT_EQ(harness.timers.armed(), std::vector{Date{t0 + 86'400}});
    EXPECT_EQ(harness.scheduler->nextTriggerDate(), std::nullopt);
    EXPECT_TRUE(std::holds_alternative<AlertSchedulerEvent::RefreshSucceeded>(harness.events.back().value));
    EXPECT_EQ(harness.calendars.intervals.front(), (FetchInterval{Date{t0 - 60}, Date{t0 + 604'800}}));
}

TEST(AlertScheduler, UnreadableRecordsPauseEverythingUntilRecovered)
{
    Harness harness([](TemporaryDefaults& defaults) {
        defaults.store(u"Orvane.settings"_s, u"not a blob"_s);
        defaults.store(u"Orvane.delivery"_s, QByteArray(R"({"schemaVersion":7,"payload":{}})"));
    });
    harness.calendars.meetings = {fixtures::meeting(u"external:now"_s, t0)};
    harness.start();

    EXPECT_TRUE(harness.scheduler->upcoming().empty());
    EXPECT_TRUE(harness.timers.armed().empty());
    EXPECT_EQ(harness.calendars.fetchCount, 0);
    const auto failures = harness.failures();
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0].operation, Operation::readingPersistence);
    EXPECT_EQ(failures[0].persistenceIssue->component, PersistenceComponent::settings);
    EXPECT_EQ(failures[1].persistenceIssue->component, PersistenceComponent::delivery);
    EXPECT_EQ(failures[1].underlyingError,
              PersistenceReadFailure{PersistenceReadFailure::UnsupportedSchemaVersion{7}}.message());

    const auto identity = fixtures::meeting(u"external:now"_s, t0).identity;
    for (const auto& action :
         std::vector<std::function<void()>>{[&] { harness.scheduler->dismiss(std::vector{identity}); },
                                            [&] { harness.scheduler->snoozeFor(std::vector{identity}, 60); },
                                            [&] {
                                                harness.scheduler->exclude(identity, ExclusionScope::series);
                                            }}) {
        try {
            action();
            ADD_FAILURE() << "an action was recorded while paused";
        } catch (const AlertSchedulerActionError& error) {
            const auto* recovery = std::get_if<AlertSchedulerActionError::PersistenceRecoveryRequired>(&error.value());
            ASSERT_NE(recovery, nullptr);
            EXPECT_EQ(recovery->issues.size(), 2U);
        }
    }
    // Calendar changes do not wake a paused scheduler either.
    harness.calendars.announceChange();
    EXPECT_EQ(harness.calendars.fetchCount, 0);

    harness.settings->resetAfterReadFailure();
    harness.delivery->resetAfterReadFailure();
    harness.scheduler->refresh();
    EXPECT_EQ(harness.dueBatches().size(), 1U);
    EXPECT_EQ(harness.timers.armed().size(), 1U);
    harness.calendars.announceChange();
    EXPECT_EQ(harness.calendars.fetchCount, 2);
}

TEST(AlertScheduler, DueBatchIsRecordedPendingAndConfirmedOnlyWhenShown)
{
    Harness harness;
    const auto standup = fixtures::meeting(u"external:standup"_s, t0 + 30);
    harness.calendars.meetings = {standup};
    harness.onEvent = [&](const AlertSchedulerEvent& event) {
        if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
            ASSERT_EQ(harness.delivery->records().size(), 1U);
            EXPECT_EQ(harness.delivery->records()[0].status, DeliveryStatus::pending);
            harness.scheduler->acknowledgePresentation(due->batch, true);
        }
    };
    harness.start();
    EXPECT_EQ(harness.scheduler->nextTriggerDate(), Date{t0 + 30});
    harness.timers.advanceTo(Date{t0 + 30});

    ASSERT_EQ(harness.dueBatches().size(), 1U);
    EXPECT_EQ(harness.dueBatches()[0].triggerDate, Date{t0 + 30});
    EXPECT_TRUE(harness.delivery->hasDelivered(standup.identity, Date{t0 + 30}));
    EXPECT_EQ(harness.scheduler->activeBatches().size(), 1U);

    // Later refreshes (a calendar edit, another timer) never show it again.
    harness.calendars.announceChange();
    harness.clock.advance(20);
    harness.scheduler->refresh();
    EXPECT_EQ(harness.dueBatches().size(), 1U);

    harness.scheduler->dismiss(std::vector{standup.identity});
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
    harness.scheduler->refresh();
    EXPECT_EQ(harness.dueBatches().size(), 1U);
}

TEST(AlertScheduler, AFullDiskNeitherDropsNorRepeatsAlertsAndTheHistoryIsWrittenLater)
{
    Harness harness;
    // Snoozed until t0 + 30: a dismiss has a snooze to clear, which the full disk refuses.
    const auto standup = fixtures::meeting(u"external:standup"_s, t0 + 300);
    harness.calendars.meetings = {standup};
    harness.delivery->setSnoozes(std::vector{SnoozeRecord{standup.identity, Date{t0 + 30}, Date{t0}}});
    harness.onEvent = [&](const AlertSchedulerEvent& event) {
        if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
            harness.scheduler->acknowledgePresentation(due->batch, true);
        }
    };
    harness.start();
    auto full = std::make_unique<DiskFull>();
    harness.timers.advanceTo(Date{t0 + 30});
    ASSERT_EQ(harness.dueBatches().size(), 1U) << "shown although it cannot be recorded";
    harness.scheduler->dismiss(std::vector{standup.identity});
    EXPECT_TRUE(harness.scheduler->activeBatches().empty()) << "dismissed although the snooze could not be cleared";
    harness.clock.advance(5);
    harness.calendars.announceChange();
    EXPECT_EQ(harness.dueBatches().size(), 1U) << "neither the snooze nor the shown alert comes back";
    ASSERT_FALSE(harness.failures().empty());
    EXPECT_EQ(harness.failures().back().operation, Operation::recordingDelivery);

    full.reset();
    harness.clock.advance(5);
    harness.scheduler->refresh();
    EXPECT_TRUE(harness.delivery->hasDelivered(standup.identity, Date{t0 + 30}));
    EXPECT_TRUE(harness.delivery->snoozes().empty());
    EXPECT_TRUE(std::any_of(harness.events.begin(), harness.events.end(), [](const AlertSchedulerEvent& event) {
        const auto* recovered = std::get_if<AlertSchedulerEvent::Recovered>(&event.value);
        return recovered && recovered->operation == Operation::recordingDelivery;
    }));
}

TEST(AlertScheduler, BatchThatCouldNotBeShownReturnsWhenTheDisplayDoes)
{
    Harness harness;
    const auto review = fixtures::meeting(u"external:review"_s, t0);
    harness.calendars.meetings = {review};
    bool displayAvailable = false;
    harness.onEvent = [&](const AlertSchedulerEvent& event) {
        if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
            harness.scheduler->acknowledgePresentation(due->batch, displayAvailable);
        }
    };
    harness.start();
    ASSERT_EQ(harness.dueBatches().size(), 1U);
    EXPECT_TRUE(harness.delivery->records().empty()) << "the pending record of an unshown alert is discarded";
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());

    harness.clock.advance(10);
    harness.calendars.announceChange();
    EXPECT_EQ(harness.dueBatches().size(), 1U) << "held back while the display is unavailable";

    displayAvailable = true;
    harness.scheduler->presentationSurfaceDidBecomeAvailable();
    ASSERT_EQ(harness.dueBatches().size(), 2U);
    EXPECT_TRUE(harness.delivery->hasDelivered(review.identity, Date{t0}));
}

TEST(AlertScheduler, BatchOfferedAgainOnlyWithinTheGrace)
{
    Harness harness;
    harness.calendars.meetings = {fixtures::meeting(u"external:review"_s, t0)};
    harness.onEvent = [&](const AlertSchedulerEvent& event) {
        if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
            harness.scheduler->acknowledgePresentation(due->batch, false);
        }
    };
    harness.start();
    harness.clock.advance(61);
    harness.scheduler->presentationSurfaceDidBecomeAvailable();
    EXPECT_EQ(harness.dueBatches().size(), 1U);
}

TEST(AlertScheduler, SnoozeStoresTheEndAndAlertsAgainThen)
{
    Harness harness;
    const auto planning = fixtures::meeting(u"external:planning"_s, t0 + 300, 60);
    harness.calendars.meetings = {planning};
    harness.clock.set(Date{t0 + 300});
    harness.onEvent = [&](const AlertSchedulerEvent& event) {
        if (const auto* due = std::get_if<AlertSchedulerEvent::AlertsDue>(&event.value)) {
            harness.scheduler->acknowledgePresentation(due->batch, true);
        }
    };
    harness.start();
    ASSERT_EQ(harness.dueBatches().size(), 1U);

    harness.scheduler->snoozeFor(std::vector{planning.identity}, 300);
    EXPECT_EQ(harness.delivery->snoozeRecord(planning.identity)->snoozedUntil, Date{t0 + 600});
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
    EXPECT_EQ(harness.timers.armed(), std::vector{Date{t0 + 600}});

    harness.timers.advanceTo(Date{t0 + 600});
    ASSERT_EQ(harness.dueBatches().size(), 2U);
    EXPECT_EQ(harness.dueBatches()[1].alerts[0].reason, AlertReason::snoozed);

    // Dismissing the snoozed alert forgets the snooze, so nothing comes back from it.
    harness.scheduler->dismiss(std::vector{planning.identity});
    EXPECT_EQ(harness.delivery->snoozeRecord(planning.identity), std::nullopt);
}

TEST(AlertScheduler, ActionsAreRefusedForInactiveMeetingsAndPastSnoozes)
{
    Harness harness;
    const auto sync = fixtures::meeting(u"external:sync"_s, t0);
    harness.calendars.meetings = {sync};
    harness.start();
    ASSERT_EQ(harness.scheduler->activeBatches().size(), 1U);

    const auto errorOf = [](const std::function<void()>& action) -> std::optional<AlertSchedulerActionError::Case> {
        try {
            action();
        } catch (const AlertSchedulerActionError& error) {
            return error.value();
        }
        return std::nullopt;
    };
    const auto identity = sync.identity;
    EXPECT_EQ(errorOf([&] { harness.scheduler->snoozeUntil(std::vector{identity}, harness.clock.now()); }),
              AlertSchedulerActionError::Case{AlertSchedulerActionError::SnoozeMustBeInTheFuture{}});
    EXPECT_EQ(errorOf([&] { harness.scheduler->snoozeFor(std::vector{identity}, -5); }),
              AlertSchedulerActionError::Case{AlertSchedulerActionError::SnoozeMustBeInTheFuture{}});
    harness.scheduler->dismiss(std::vector{identity});
    for (const auto& action :
         std::vector<std::function<void()>>{[&] { harness.scheduler->dismiss(std::vector{identity}); },
                                            [&] { harness.scheduler->snoozeFor(std::vector{identity}, 60); },
                                            [&] {
                                                harness.scheduler->exclude(identity, ExclusionScope::occurrence);
                                            }}) {
        EXPECT_EQ(errorOf(action), AlertSchedulerActionError::Case{AlertSchedulerActionError::OccurrenceIsNotActive{}});
    }
}

TEST(AlertScheduler, ExcludeRecordsTheMeetingAndClearsItsSnooze)
{
    Harness harness;
    const auto weekly = fixtures::meeting(u"external:weekly"_s, t0);
    const auto nextWeek = fixtures::meeting(u"external:weekly"_s, t0 + 604'800 - 3600);
    harness.calendars.meetings = {weekly, nextWeek};
    harness.delivery->setSnoozes(std::vector{SnoozeRecord{weekly.identity, Date{t0}, Date{t0 - 60}}});
    harness.start();
    ASSERT_EQ(harness.scheduler->activeBatches().size(), 1U);

    harness.scheduler->exclude(weekly.identity, ExclusionScope::series);
    ASSERT_EQ(harness.exclusions->records().size(), 1U);
    const auto& record = harness.exclusions->records()[0];
    EXPECT_EQ(record.scope, ExclusionScope::series);
    EXPECT_EQ(record.createdAt, Date{t0});
    EXPECT_EQ(record.eventTitle, weekly.title);
    EXPECT_EQ(record.calendarTitle, weekly.calendar.title);
    EXPECT_EQ(harness.delivery->snoozeRecord(weekly.identity), std::nullopt);
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
    EXPECT_TRUE(harness.scheduler->upcoming().empty()) << "the next occurrence is excluded too";
}

TEST(AlertScheduler, LastStartedRefreshWins)
{
    Harness harness;
    harness.calendars.meetings = {fixtures::meeting(u"external:a"_s, t0 + 600)};
    harness.calendars.holdFetches = true;
    harness.scheduler->refresh();
    harness.clock.advance(5);
    harness.scheduler->refresh();
    EXPECT_TRUE(harness.scheduler->isRefreshing());
    harness.calendars.holdFetches = false;
    harness.calendars.release();
    QCoreApplication::processEvents();

    EXPECT_FALSE(harness.scheduler->isRefreshing());
    const auto succeeded = std::count_if(harness.events.begin(), harness.events.end(), [](const auto& event) {
        return std::holds_alternative<AlertSchedulerEvent::RefreshSucceeded>(event.value);
    });
    EXPECT_EQ(succeeded, 1);
    EXPECT_EQ(harness.timers.armed().size(), 1U);
}

TEST(AlertScheduler, PrunesOldHistoryAndFollowsCalendarChanges)
{
    Harness harness;
    const auto old = fixtures::meeting(u"external:old"_s, t0 - 3'000'000);
    harness.delivery->prepareDeliveries(
        std::vector{DeliveryRecord{old.identity, old.startDate, DeliveryStatus::confirmed, Date{t0 - 2'592'001}},
                    DeliveryRecord{old.identity, old.startDate + 1, DeliveryStatus::confirmed, Date{t0 - 2'592'000}}});
    harness.delivery->setSnoozes(std::vector{SnoozeRecord{old.identity, Date{t0 - 61}, Date{t0 - 600}}});
    harness.start();
    EXPECT_EQ(harness.delivery->records().size(), 1U);
    EXPECT_TRUE(harness.delivery->snoozes().empty());

    harness.calendars.meetings = {fixtures::meeting(u"external:new"_s, t0 + 900)};
    harness.calendars.announceChange();
    EXPECT_EQ(harness.scheduler->next()->title, u"external:new"_s);
    EXPECT_EQ(harness.scheduler->nextTriggerDate(), Date{t0 + 900});
    harness.scheduler->stop();
    EXPECT_TRUE(harness.timers.armed().empty());
    harness.calendars.announceChange();
    EXPECT_EQ(harness.calendars.fetchCount, 2);
}

} // namespace
