// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CompositeCalendarRepository.h"

#include "fakes/FakeCalendarSource.h"
#include "fakes/FakeClock.h"
#include "persistence/SettingsStore.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"
#include "support/TemporaryDefaults.h"

#include <QCoreApplication>
#include <QSignalSpy>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

constexpr double t0 = 700'000'000;

struct Composite {
    TemporaryDefaults defaults;
    SettingsStore settings{defaults.database()};
    FakeClock clock{Date{t0}};
    CompositeCalendarRepository repository{settings, clock};
    FakeCalendarSource local{u"local"_s, u"Desktop calendars"_s};
    FakeCalendarSource google{u"google:ada"_s, u"ada@example.com"_s};

    Composite()
    {
        repository.addSource(local);
        repository.addSource(google);
    }

    std::vector<MeetingOccurrence> fetch()
    {
        return runTask(repository.occurrences(FetchInterval::around(clock.now())));
    }
};

std::vector<QString> titles(const std::vector<MeetingOccurrence>& occurrences)
{
    std::vector<QString> result;
    for (const auto& occurrence : occurrences) {
        result.push_back(occurrence.title);
    }
    return result;
}

MeetingOccurrence titled(MeetingOccurrence occurrence, const QString& title)
{
    occurrence.title = title;
    return occurrence;
}

TEST(CompositeCalendarRepository, MergesSourcesAndKeepsAMeetingSeenTwiceOnce)
{
    Composite composite;
    const auto synced = fixtures::meeting(u"external:kickoff@google.com"_s, t0 + 600);
    composite.local.meetings = {titled(synced, u"via desktop"_s), fixtures::meeting(u"local:lunch"_s, t0 + 900)};
    composite.google.meetings = {titled(synced, u"via Google"_s),
                                 fixtures::meeting(u"external:kickoff@google.com"_s, t0 + 600 + 86'400),
                                 fixtures::meeting(u"local:lunch"_s, t0 + 900)};
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"via desktop"_s, u"local:lunch"_s,
                                                               u"external:kickoff@google.com"_s, u"local:lunch"_s}));
    EXPECT_TRUE(composite.repository.healthIssues().empty());
    EXPECT_TRUE(composite.repository.lastFetchWasComplete());
}

TEST(CompositeCalendarRepository, ListingTheCalendarsKeepsThemKnown)
{
    Composite composite;
    composite.local.groups = {CalendarGroup{u"src-1"_s, u"Desktop"_s, CalendarSourceKind::local, {}}};
    const auto listed = runTask(composite.repository.calendarGroups());
    ASSERT_EQ(listed.size(), 1u);
    // The reconciler reads the known calendars later; handing out the list must not use it up.
    EXPECT_EQ(composite.repository.knownCalendarGroups(), listed);
    EXPECT_EQ(runTask(composite.repository.calendarGroups()), listed);
    EXPECT_EQ(composite.local.groups.size(), 1u);
}

TEST(CompositeCalendarRepository, PassesTheSelectionOrAllCalendars)
{
    Composite composite;
    composite.fetch();
    EXPECT_EQ(composite.local.selections.back(), std::nullopt);
    NotifierSettings settings;
    settings.selectedCalendars = std::vector{CalendarSelectionRecord{u"cal-a"_s, std::nullopt}};
    composite.settings.save(settings);
    composite.fetch();
    EXPECT_EQ(composite.google.selections.back(), QSet<QString>{u"cal-a"_s});
}

TEST(CompositeCalendarRepository, FailingSourceKeepsItsLastMeetingsForAWhileAndIsRetried)
{
    Composite composite;
    composite.google.meetings = {fixtures::meeting(u"external:board"_s, t0 + 3000)};
    composite.local.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 1200),
                                fixtures::meeting(u"external:review"_s, t0 + 7200)};
    composite.fetch();
    runTask(composite.repository.calendarGroups()); // as settings lists them: says nothing about the meetings

    QSignalSpy healthChanged(&composite.repository, &CompositeCalendarRepository::healthIssuesChanged);
    composite.google.failing = true;
    composite.clock.advance(1800);
    EXPECT_EQ(titles(composite.fetch()),
              (std::vector<QString>{u"external:standup"_s, u"external:review"_s, u"external:board"_s}));
    ASSERT_EQ(composite.repository.healthIssues().size(), 1U);
    const auto& issue = composite.repository.healthIssues()[0];
    EXPECT_EQ(issue.displayName, u"ada@example.com"_s);
    EXPECT_EQ(issue.message, u"The account is unreachable."_s);
    EXPECT_EQ(healthChanged.count(), 1);
    EXPECT_FALSE(composite.repository.lastFetchWasComplete());
    EXPECT_EQ(composite.repository.pendingRetry(), std::chrono::milliseconds(60'000));

    composite.clock.advance(1801); // more than an hour since the source last answered
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"external:review"_s}));
    EXPECT_EQ(composite.repository.pendingRetry(), std::chrono::milliseconds(120'000));

    composite.google.failing = false;
    composite.fetch();
    EXPECT_TRUE(composite.repository.healthIssues().empty());
    EXPECT_EQ(composite.repository.pendingRetry(), std::nullopt);
    EXPECT_EQ(healthChanged.count(), 2);
}

TEST(CompositeCalendarRepository, FailingCalendarKeepsItsLastMeetingsWhileTheOthersDeliverFreshOnes)
{
    Composite composite;
    composite.google.meetings = {fixtures::meeting(u"external:board"_s, t0 + 3000, 30, u"cal-team"_s),
                                 fixtures::meeting(u"external:standup"_s, t0 + 1200)};
    composite.fetch();

    composite.google.failingCalendars = {{u"cal-team"_s, u"Team"_s}};
    composite.google.meetings.back() = fixtures::meeting(u"external:retro"_s, t0 + 4000);
    composite.clock.advance(1800);
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"external:retro"_s, u"external:board"_s}));
    EXPECT_EQ(composite.repository.pendingRetry(), std::chrono::milliseconds(60'000));
    runTask(composite.repository.calendarGroups()); // listing the calendars does not read them: the issue stands
    ASSERT_EQ(composite.repository.healthIssues().size(), 1U);
    const auto& issue = composite.repository.healthIssues()[0];
    EXPECT_EQ(issue.title(), u"Calendar “Team” of ada@example.com"_s);
    EXPECT_EQ(issue.message, u"The calendar is unreachable."_s);
    EXPECT_FALSE(composite.repository.lastFetchWasComplete());
    composite.clock.advance(600);
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"external:retro"_s, u"external:board"_s}));

    // Each calendar's meetings age from its own last answer: the whole account failing now keeps the fresh retro
    // but no longer the board meeting, last delivered more than an hour ago.
    composite.google.failing = true;
    composite.clock.advance(1201);
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"external:retro"_s}));
}

TEST(CompositeCalendarRepository, NothingToShowIsAFailedFetch)
{
    Composite composite;
    composite.local.failing = true;
    composite.google.failing = true;
    EXPECT_THROW(composite.fetch(), std::runtime_error);
    EXPECT_EQ(composite.repository.healthIssues().size(), 2U);
    EXPECT_EQ(composite.repository.pendingRetry(), std::nullopt) << "the scheduler's own back-off takes over";
}

TEST(CompositeCalendarRepository, SlowSourceDoesNotHoldTheOthers)
{
    Composite composite;
    composite.repository.setSourceTimeLimit(std::chrono::milliseconds(50));
    composite.local.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 1200)};
    composite.google.holding = true;
    EXPECT_EQ(titles(composite.fetch()), (std::vector<QString>{u"external:standup"_s}));
    ASSERT_EQ(composite.repository.healthIssues().size(), 1U);
    EXPECT_EQ(composite.repository.healthIssues()[0].message, u"The calendars took too long to answer."_s);
    composite.google.release(); // its late answer is dropped
    QCoreApplication::processEvents();
}

TEST(CompositeCalendarRepository, RemovedSourceIsForgotten)
{
    Composite composite;
    composite.google.meetings = {fixtures::meeting(u"external:board"_s, t0 + 3000)};
    composite.fetch();
    composite.repository.removeSource(u"google:ada"_s);
    EXPECT_TRUE(composite.fetch().empty());
    QSignalSpy changed(&composite.repository, &CalendarProviding::changed);
    Q_EMIT composite.google.changed();
    EXPECT_EQ(changed.count(), 0);
    Q_EMIT composite.local.changed();
    EXPECT_EQ(changed.count(), 1);
}

} // namespace
