// SPDX-License-Identifier: GPL-3.0-or-later
// A week in the life of the scheduler. The real AlertScheduler and the real stores (in a settings file of their own)
// live through seven days of a busy calendar while a simulated user answers every alert, and the machine loses the
// network, sleeps, has its clock changed, locks its screen and restarts the application. An oracle that knows the
// alert rules but not the scheduler says, at every moment, what the user must have seen by then and what never.
#include "domain/Overloaded.h"
#include "fakes/FakeCalendarProvider.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeTimerScheduler.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsDefaultsDatabase.h"
#include "persistence/SettingsStore.h"
#include "scheduling/AlertScheduler.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

constexpr double kMinute = 60;
constexpr double kHour = 3600;
constexpr double kDay = 86'400;
/// Midnight (UTC) at the start of the simulated Monday.
constexpr double kWeekStart = 699'926'400;

// The rules the oracle holds the scheduler to, written down here rather than taken from the code under test.
/// An alert may still come this long after the meeting started (or after its snooze ended), never later.
constexpr double kGrace = 60;
/// The calendars are read from a minute ago to a week ahead.
constexpr double kLookBehind = 60;
constexpr double kLookAhead = 7 * kDay;
/// With nothing to alert about, the scheduler still wakes once a day.
constexpr double kIdleWakeUp = kDay;
/// Waits after the first, second, ... failed fetch in a row; the last one repeats.
constexpr std::array kRetryDelays = {60.0, 120.0, 240.0, 480.0, 900.0};
/// Fewer wrong answers than this are read one by one; more mean the week has gone off the rails.
constexpr int kMaximumFaults = 25;

double retryDelay(int failuresInARow)
{
    return kRetryDelays[std::min<std::size_t>(failuresInARow, kRetryDelays.size()) - 1];
}

constexpr double at(int day, int hour, int minute, int second = 0)
{
    return kWeekStart + day * kDay + hour * kHour + minute * kMinute + second;
}

/// "Tue 09:12:30" for failure messages.
std::string when(Date date)
{
    static constexpr std::array days = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun", "Mon+"};
    const double offset = date - Date{kWeekStart};
    const int day = std::clamp(static_cast<int>(std::floor(offset / kDay)), 0, 7);
    const double within = offset - day * kDay;
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%s %02d:%02d:%02d", days[day], static_cast<int>(within / kHour),
                  static_cast<int>(std::fmod(within, kHour) / kMinute), static_cast<int>(std::fmod(within, kMinute)));
    return text.data();
}

std::string describe(const MeetingOccurrence& meeting)
{
    return meeting.title.toStdString() + " (" + when(meeting.startDate) + " to " + when(meeting.endDate) + ")";
}

std::string describe(const ScheduledAlert& alert)
{
    return std::string(alert.reason == AlertReason::snoozed ? "snoozed" : "initial") + " alert of " +
           describe(alert.occurrence) + " triggered " + when(alert.triggerDate);
}

/// The order of meetings in the menu and on one alert: start, end, calendar, series.
bool listedBefore(const MeetingOccurrence& lhs, const MeetingOccurrence& rhs)
{
    return std::tie(lhs.startDate, lhs.endDate, lhs.calendar.identifier, lhs.identity.seriesIdentifier) <
           std::tie(rhs.startDate, rhs.endDate, rhs.calendar.identifier, rhs.identity.seriesIdentifier);
}

/// Seeded choices. std::mt19937's output is fixed by the standard, so every machine lives the same week.
class Dice {
public:
    explicit Dice(std::uint32_t seed)
        : m_engine(seed)
    {
    }

    std::size_t below(std::size_t count) { return m_engine() % count; }
    bool chance(unsigned percent) { return below(100) < percent; }

private:
    std::mt19937 m_engine;
};

/// A series the simulated user always excludes as a whole, at the first alert of it they see.
const QString kInterviews = u"interviews"_s;

/// About 330 meetings: recurring series and one-off meetings, mostly on the hour or half hour (so that many share a
/// start, and thus a trigger instant, and many overlap), and every day an all-day, a cancelled, a declined and a
/// tentative event.
std::vector<MeetingOccurrence> busyWeek(Dice& dice)
{
    const std::array calendars = {u"cal-work"_s, u"cal-team"_s};
    const std::array lengths = {15.0, 20.0, 30.0, 30.0, 45.0, 60.0, 90.0};
    const auto day = [](int index) {
        return kWeekStart + index * kDay;
    };
    // Most meetings start on the hour or the half hour, some on the quarter hour.
    const auto gridTime = [&dice] {
        const double slot = dice.chance(85) ? 30 * kMinute * static_cast<double>(dice.below(19))
                                            : 15 * kMinute * static_cast<double>(dice.below(38));
        return 8 * kHour + 30 * kMinute + slot;
    };
    std::vector<MeetingOccurrence> week;

    for (int series = 0; series < 10; ++series) {
        const double time = gridTime();
        const double minutes = lengths[dice.below(lengths.size())];
        const QString& calendar = calendars[dice.below(calendars.size())];
        const bool daily = dice.chance(50);
        for (int index = 0; index < 7; ++index) {
            if (daily || dice.chance(40)) {
                auto occurrence = fixtures::meeting(u"series-%1"_s.arg(series), day(index) + time, minutes, calendar);
                occurrence.isRecurring = true;
                week.push_back(occurrence);
            }
        }
    }
    // Interview slots every half hour on Sunday morning, one series the user wants no alerts for.
    for (int slot = 0; slot < 6; ++slot) {
        auto interview = fixtures::meeting(kInterviews, day(6) + 9 * kHour + slot * 30 * kMinute, 25);
        interview.isRecurring = true;
        week.push_back(interview);
    }
    for (int index = 0; index < 7; ++index) {
        for (int number = 0; number < 33; ++number) {
            // Now and then a meeting starts on the half minute, off the grid everybody else uses.
            const double start = day(index) + gridTime() + (dice.chance(12) ? 30 : 0);
            week.push_back(fixtures::meeting(u"d%1-%2"_s.arg(index).arg(number), start,
                                             lengths[dice.below(lengths.size())],
                                             calendars[dice.below(calendars.size())]));
        }
        auto offsite = fixtures::meeting(u"d%1-offsite"_s.arg(index), day(index), 24 * 60);
        offsite.isAllDay = true;
        auto cancelled = fixtures::meeting(u"d%1-cancelled"_s.arg(index), day(index) + gridTime(), 30);
        cancelled.isCanceled = true;
        auto declined = fixtures::meeting(u"d%1-declined"_s.arg(index), day(index) + gridTime(), 30);
        declined.participationStatus = MeetingParticipationStatus::declined;
        auto tentative = fixtures::meeting(u"d%1-tentative"_s.arg(index), day(index) + gridTime(), 30);
        tentative.participationStatus = MeetingParticipationStatus::tentative;
        week.insert(week.end(), {offsite, cancelled, declined, tentative});
        if (index == 1 || index == 4) {
            week.push_back(fixtures::meeting(u"d%1-placeholder"_s.arg(index), day(index) + gridTime(), 0));
        }
    }
    return week;
}

/// What happens to the machine and the application during the week, besides the meetings.
enum class Happening {
    leadTimeChange,       ///< amount: the new lead time; the application refreshes after saving it
    fetchOutage,          ///< amount: how many fetches in a row fail; announced as a calendar change
    screenLock,           ///< amount: how long alerts cannot be shown
    screenUnlock,         ///< the end of a screen lock, scheduled by the lock
    sleep,                ///< amount: how long the machine sleeps; on wake the overdue timer fires
    clockChange,          ///< amount: how far the clock is set (negative: back); the application refreshes
    calendarEdits,        ///< meetings added at short notice, cancelled, declined and moved
    overlappingRefreshes, ///< a second refresh starts while the first still waits for the calendars
    restart,              ///< amount: how long the application stays closed
    crash,                ///< the application dies while an alert is on its way to the screen; amount as restart
};

enum class Anchor {
    none,
    /// Moved to `ahead` seconds before the next alert, so that the happening really covers one.
    nextAlert,
    /// The same, for the next alert at the end of a snooze (postponed until something is snoozed).
    nextSnoozedAlert,
};

struct Scripted {
    double at;
    Happening what;
    double amount = 0;
    Anchor anchor = Anchor::none;
    double ahead = 0;
};

// clang-format off
const std::vector<Scripted> kScript = {
    // Monday: the lead time starts at five minutes.
    {at(0, 9, 40), Happening::fetchOutage, 1, Anchor::nextAlert, 30},
    {at(0, 10, 50), Happening::screenLock, 40, Anchor::nextAlert, 10},
    {at(0, 13, 59, 30), Happening::leadTimeChange, 0},
    {at(0, 15, 2, 10), Happening::overlappingRefreshes},
    {at(0, 16, 20), Happening::sleep, 20 * kMinute, Anchor::nextAlert, 20},
    {at(0, 18, 0), Happening::leadTimeChange, 600},
    // Tuesday
    {at(1, 9, 10), Happening::clockChange, 7 * kMinute, Anchor::nextAlert, 60},
    {at(1, 11, 0), Happening::fetchOutage, 3, Anchor::nextAlert, 30},
    {at(1, 13, 0), Happening::leadTimeChange, 120},
    {at(1, 15, 31, 45), Happening::calendarEdits},
    {at(1, 17, 10, 20), Happening::clockChange, -20 * kMinute},
    // Wednesday
    {at(2, 10, 2, 40), Happening::restart, 0, Anchor::nextSnoozedAlert, 20},
    {at(2, 12, 10), Happening::screenLock, 6 * kMinute, Anchor::nextAlert, 10},
    {at(2, 14, 0), Happening::leadTimeChange, 900},
    {at(2, 16, 40), Happening::fetchOutage, 6, Anchor::nextAlert, 30},
    {at(2, 21, 0), Happening::sleep, 10 * kHour + 55 * kMinute},
    // Thursday
    {at(3, 9, 20), Happening::leadTimeChange, 60},
    {at(3, 10, 30), Happening::crash, 20, Anchor::nextAlert, 0},
    {at(3, 11, 40), Happening::sleep, 45, Anchor::nextAlert, 20},
    {at(3, 13, 5, 10), Happening::overlappingRefreshes},
    {at(3, 15, 20), Happening::clockChange, 3 * kHour, Anchor::nextAlert, 60},
    // Friday
    {at(4, 9, 55), Happening::restart, 150, Anchor::nextAlert, 30},
    {at(4, 11, 0), Happening::leadTimeChange, 300},
    {at(4, 13, 30), Happening::fetchOutage, 2, Anchor::nextAlert, 30},
    {at(4, 14, 25), Happening::screenLock, 30, Anchor::nextAlert, 10},
    {at(4, 16, 8, 5), Happening::clockChange, -2 * kMinute},
    // Saturday
    {at(5, 10, 0), Happening::leadTimeChange, 0},
    {at(5, 11, 0), Happening::sleep, 80, Anchor::nextAlert, 20},   // wakes 60 s after the trigger: just in time
    {at(5, 12, 0, 20), Happening::calendarEdits},
    {at(5, 13, 0), Happening::sleep, 110, Anchor::nextAlert, 20},  // wakes 90 s after the trigger: too late
    {at(5, 15, 40), Happening::sleep, 10 * kMinute, Anchor::nextAlert, 20},
    // Sunday: a long lead time makes every meeting of the next half hour due at once (two interview slots too).
    {at(6, 9, 0), Happening::leadTimeChange, 1800},
    {at(6, 11, 10), Happening::fetchOutage, 1, Anchor::nextAlert, 30},
    {at(6, 12, 30), Happening::screenLock, 90, Anchor::nextAlert, 10},
    {at(6, 14, 0), Happening::leadTimeChange, 600},
};
// clang-format on

/// How the week went, for the record and to make sure the simulation exercised what it claims to.
struct Tally {
    int meetings = 0;
    int happenings = 0;
    int refreshes = 0;
    int fetchFailures = 0;
    int batches = 0;
    int sharedBatches = 0;
    int largestBatch = 0;
    int initialAlerts = 0;
    int snoozedAlerts = 0;
    int lateAlerts = 0;
    int heldBack = 0;
    int offeredAgain = 0;
    int snoozesFiredAfterRestart = 0;
    int abandonedByCrash = 0;
    int offeredAfterCrash = 0;
    int neverAnnounced = 0;
    int dismissals = 0;
    int snoozesForAMinute = 0;
    int snoozesForFiveMinutes = 0;
    int snoozesUntilStart = 0;
    int occurrenceExclusions = 0;
    int seriesExclusions = 0;
    int othersClosedByExclusion = 0;
    int refusalsChecked = 0;
};

/// The oracle's view of one meeting (one identity).
struct Track {
    MeetingOccurrence occurrence;
    /// Still in the calendar under this identity (a moved meeting gets a new one).
    bool inCalendar = true;
    std::optional<Date> snoozedUntil;
    /// The scheduler cannot have learnt of the meeting's current alert before this moment (the alert was created
    /// then, or the scheduler could not run until then); the alert is due at its trigger or at this, the later.
    Date knownAt;
    /// A dismiss removed the meeting's snooze: whatever alert that uncovers is due at the next refresh.
    bool waitsForRefresh = false;
};

/// An exclusion the user made: a series in a calendar, or one occurrence of it.
struct Exclusion {
    QString calendar;
    QString series;
    std::optional<Date> occurrenceStart;
};

/// The alert the oracle expects of one meeting at one moment.
struct Expected {
    Date trigger;
    AlertReason reason = AlertReason::initial;
    /// When the scheduler must hand it out: the trigger, or later if it could not have known in time.
    Date due;
};

struct Reaction {
    AlertBatch batch;
    /// The application run that showed the batch; a restart closes its alerts.
    int run = 0;
};

class Week {
public:
    explicit Week(std::uint32_t seed);

    Tally live();

private:
    // The application around the scheduler.
    void openApplication();
    void startScheduler();
    void closeApplication();
    void onEvent(const AlertSchedulerEvent& event);
    void refreshNow();
    void settle();

    // The simulated user.
    void receive(const AlertBatch& batch);
    void acknowledge(const AlertBatch& batch);
    void react(const Reaction& reaction);
    void answer(const ScheduledAlert& alert);
    void answerAll(const std::vector<MeetingIdentity>& identities);
    void dismiss(const std::vector<MeetingIdentity>& identities);
    void snooze(const std::vector<MeetingIdentity>& identities, double seconds);
    void snoozeUntilStart(const MeetingIdentity& identity, Date start);
    void exclude(const MeetingIdentity& identity, ExclusionScope scope);

    // The world.
    void perform(Scripted happening);
    void changeLeadTime(double seconds);
    void loseTheNetwork(int failures);
    void unlockScreen();
    void sleep(double seconds);
    void changeClock(double seconds);
    void editCalendars();
    void overlapRefreshes();
    void restart(double closedFor);
    void crash(double closedFor);
    void addMeeting(MeetingOccurrence meeting);
    void replaceMeeting(const MeetingOccurrence& meeting);
    std::vector<const Track*> futureMeetings(Date after) const;

    // The oracle.
    Date now() const { return m_clock.now(); }
    bool isExcluded(const MeetingIdentity& identity) const;
    bool isEligible(const MeetingOccurrence& meeting) const;
    std::optional<Expected> expectedAlert(const Track& track) const;
    std::optional<Date> nextDue(bool snoozedOnly = false) const;
    std::optional<Date> nextTrigger() const;
    void recover(Date from);
    void noteRefresh(bool fetched);
    void forgetOnScreen(const std::function<bool(const MeetingIdentity&)>& leaves);
    bool onScreen(const MeetingIdentity& identity) const;
    void checkAlert(const ScheduledAlert& alert);
    void checkUpcoming();
    void checkStep();
    void fault(const std::string& what);

    template <class Action>
    void attempt(const char* what, Action&& action);
    template <class Refusal, class Action>
    void expectRefusal(const char* what, Action&& action);

    Dice m_dice;
    FakeClock m_clock{Date{at(0, 6, 0)}};
    FakeTimerScheduler m_timers{m_clock};
    FakeCalendarProvider m_provider;
    TemporaryDefaults m_defaults;
    std::unique_ptr<SettingsDefaultsDatabase> m_database;
    std::unique_ptr<SettingsStore> m_settingsStore;
    std::unique_ptr<ExclusionStore> m_exclusionStore;
    std::unique_ptr<DeliveryStore> m_deliveryStore;
    std::unique_ptr<AlertScheduler> m_scheduler;
    int m_run = 0;

    std::multimap<double, Scripted> m_script;
    std::multimap<double, Reaction> m_reactions;
    std::vector<AlertBatch> m_unacknowledged;
    bool m_locked = false;
    Date m_lockEnd;
    bool m_fetchHeld = false;
    /// The application is about to die: it shows nothing more.
    bool m_dying = false;
    int m_edits = 0;

    std::unordered_map<MeetingIdentity, Track> m_tracks;
    std::vector<Exclusion> m_exclusions;
    double m_leadTime = 300;
    /// Alerts the user has seen: never again.
    std::unordered_set<DeliveryKey> m_shown;
    std::unordered_set<MeetingIdentity> m_announced;
    /// Shown and not yet answered.
    std::unordered_set<DeliveryKey> m_onScreen;
    /// Handed out, acknowledgement still to come.
    std::unordered_set<DeliveryKey> m_handedOut;
    /// Not shown because the screen was locked; offered again once it is not.
    std::unordered_set<DeliveryKey> m_heldBack;
    std::unordered_set<DeliveryKey> m_everHeldBack;
    std::unordered_set<DeliveryKey> m_reportedMissing;
    std::unordered_set<DeliveryKey> m_snoozedAcrossRestart;
    /// Handed out by an application that died before showing them.
    std::unordered_set<DeliveryKey> m_abandoned;
    bool m_outage = false;
    int m_failuresInARow = 0;
    Date m_outageMustEndBy;
    std::vector<MeetingIdentity> m_lastUpcoming;
    std::optional<Date> m_lastBatchOfRefresh;
    int m_faults = 0;
    Tally m_tally;
};

Week::Week(std::uint32_t seed)
    : m_dice(seed)
{
    for (auto& meeting : busyWeek(m_dice)) {
        addMeeting(std::move(meeting));
    }
    m_tally.meetings = static_cast<int>(m_provider.meetings.size());
    for (const auto& happening : kScript) {
        m_script.emplace(happening.at, happening);
    }
    openApplication();
    NotifierSettings settings = m_settingsStore->settings();
    settings.alertLeadTime = m_leadTime;
    m_settingsStore->save(settings);
    startScheduler();
}

Tally Week::live()
{
    const Date end{at(7, 0, 0)};
    while (now() < end && m_faults < kMaximumFaults) {
        // Step to the next moment anything happens or is owed: a timer, the user, the world, or an alert the
        // oracle expects (so that an alert the scheduler forgot to arm a timer for is noticed on time).
        Date next = end;
        if (!m_script.empty()) {
            next = std::min(next, Date{m_script.begin()->first});
        }
        if (!m_reactions.empty()) {
            next = std::min(next, Date{m_reactions.begin()->first});
        }
        if (const auto timer = m_timers.nextDate()) {
            next = std::min(next, *timer);
        }
        if (const auto due = nextDue()) {
            next = std::min(next, *due);
        }
        m_timers.advanceTo(std::max(next, now()));
        settle();
        for (;;) {
            if (!m_script.empty() && m_script.begin()->first <= now().secondsSinceReferenceDate) {
                const Scripted happening = m_script.begin()->second;
                m_script.erase(m_script.begin());
                perform(happening);
            } else if (!m_reactions.empty() && m_reactions.begin()->first <= now().secondsSinceReferenceDate) {
                const Reaction reaction = m_reactions.begin()->second;
                m_reactions.erase(m_reactions.begin());
                react(reaction);
            } else {
                break;
            }
            settle();
        }
        checkStep();
    }
    EXPECT_LT(m_faults, kMaximumFaults) << "the simulation stopped early";

    // Everything the user saw is in the reminder history exactly once, and nothing else is.
    std::unordered_set<DeliveryKey> stored;
    for (const auto& record : m_deliveryStore->records()) {
        EXPECT_TRUE(stored.insert(record.id()).second)
            << "two delivery records for " << record.identity.seriesIdentifier.toStdString();
        if (record.status != DeliveryStatus::confirmed) {
            EXPECT_TRUE(m_abandoned.contains(record.id()))
                << "a pending delivery was left behind for " << record.identity.seriesIdentifier.toStdString();
            stored.erase(record.id());
        }
    }
    EXPECT_EQ(stored, m_shown);
    EXPECT_EQ(m_exclusionStore->records().size(), m_exclusions.size());

    for (const auto& [identity, track] : m_tracks) {
        if (track.inCalendar && isEligible(track.occurrence) && track.occurrence.startDate < now() &&
            !m_announced.contains(identity)) {
            ++m_tally.neverAnnounced;
        }
    }
    return m_tally;
}

// ---- The application around the scheduler -----------------------------------------------------------------------

void Week::openApplication()
{
    m_database = std::make_unique<SettingsDefaultsDatabase>(m_defaults.path());
    m_settingsStore = std::make_unique<SettingsStore>(*m_database);
    m_exclusionStore = std::make_unique<ExclusionStore>(*m_database);
    m_deliveryStore = std::make_unique<DeliveryStore>(*m_database);
}

void Week::startScheduler()
{
    ++m_run;
    m_scheduler = std::make_unique<AlertScheduler>(m_provider, *m_settingsStore, *m_exclusionStore, *m_deliveryStore,
                                                   m_timers, m_clock);
    m_scheduler->setEventHandler([this](const AlertSchedulerEvent& event) { onEvent(event); });
    auto started = m_scheduler->start();
    if (!started.isReady()) {
        fault("the first refresh did not finish although the calendars answered at once");
    }
}

void Week::closeApplication()
{
    m_scheduler.reset();
    m_deliveryStore.reset();
    m_exclusionStore.reset();
    m_settingsStore.reset();
    m_database.reset();
}

void Week::onEvent(const AlertSchedulerEvent& event)
{
    if (m_timers.armed().size() > 1) {
        fault("more than one timer is armed");
    }
    std::visit(Overloaded{
                   [](const AlertSchedulerEvent::StateChanged&) {},
                   [this](const AlertSchedulerEvent::AlertsDue& due) { receive(due.batch); },
                   [this](const AlertSchedulerEvent::Failed& failed) {
                       if (failed.failure.operation != AlertSchedulerFailure::Operation::fetchingMeetings) {
                           fault("unexpected failure: " + failed.failure.underlyingError.toStdString());
                           return;
                       }
                       ++m_tally.fetchFailures;
                       noteRefresh(false);
                       m_lastBatchOfRefresh.reset();
                       m_outage = true;
                       ++m_failuresInARow;
                       const std::vector<Date> retry = {now() + retryDelay(m_failuresInARow)};
                       if (m_timers.armed() != retry) {
                           fault("after " + std::to_string(m_failuresInARow) +
                                 " failed fetches the retry is not armed for " + when(retry.front()));
                       }
                       std::vector<MeetingIdentity> upcoming;
                       for (const auto& meeting : m_scheduler->upcoming()) {
                           upcoming.push_back(meeting.identity);
                       }
                       if (upcoming != m_lastUpcoming) {
                           fault("a failed fetch changed the upcoming list");
                       }
                   },
                   [this](const AlertSchedulerEvent::RefreshSucceeded&) {
                       ++m_tally.refreshes;
                       noteRefresh(true);
                       checkUpcoming();
                       m_lastBatchOfRefresh.reset();
                   },
                   [](const AlertSchedulerEvent::Recovered&) {},
               },
               event.value);
}

void Week::refreshNow()
{
    auto refresh = m_scheduler->refresh();
    if (!refresh.isReady()) {
        fault("a refresh did not finish although the calendars answered at once");
    }
}

/// The application model acknowledges the batches it has not acknowledged yet, without letting time pass.
void Week::settle()
{
    while (!m_dying && !m_unacknowledged.empty()) {
        const AlertBatch batch = m_unacknowledged.front();
        m_unacknowledged.erase(m_unacknowledged.begin());
        acknowledge(batch);
    }
}

// ---- The simulated user ------------------------------------------------------------------------------------------

void Week::receive(const AlertBatch& batch)
{
    noteRefresh(true);
    ++m_tally.batches;
    if (batch.alerts.empty()) {
        fault("an empty batch was handed out");
        return;
    }
    if (m_lastBatchOfRefresh && !(batch.triggerDate > *m_lastBatchOfRefresh)) {
        fault("the batches of one refresh are not in ascending, distinct trigger dates at " + when(batch.triggerDate));
    }
    m_lastBatchOfRefresh = batch.triggerDate;
    if (batch.alerts.size() > 1) {
        ++m_tally.sharedBatches;
    }
    m_tally.largestBatch = std::max(m_tally.largestBatch, static_cast<int>(batch.alerts.size()));
    for (std::size_t index = 0; index < batch.alerts.size(); ++index) {
        const auto& alert = batch.alerts[index];
        if (alert.triggerDate != batch.triggerDate) {
            fault(describe(alert) + " is in the batch of " + when(batch.triggerDate));
        }
        if (index > 0 && listedBefore(alert.occurrence, batch.alerts[index - 1].occurrence)) {
            fault(describe(alert) + " is out of order in its batch");
        }
        checkAlert(alert);
    }
    // The application model reports on the alert either at once or right after the scheduler is done; both happen.
    if (!m_dying && m_dice.chance(50)) {
        acknowledge(batch);
    } else {
        m_unacknowledged.push_back(batch);
    }
}

void Week::acknowledge(const AlertBatch& batch)
{
    const bool presented = !m_locked;
    for (const auto& alert : batch.alerts) {
        const DeliveryKey key{alert.occurrence.identity, alert.triggerDate};
        m_handedOut.erase(key);
        if (presented) {
            m_shown.insert(key);
            m_onScreen.insert(key);
            m_announced.insert(key.identity);
        } else {
            m_heldBack.insert(key);
            m_everHeldBack.insert(key);
            ++m_tally.heldBack;
        }
    }
    m_scheduler->acknowledgePresentation(batch, presented);
    if (presented) {
        static constexpr std::array delays = {0.0, 0.0, 2.0, 15.0, 40.0, 75.0, 150.0};
        m_reactions.emplace((now() + delays[m_dice.below(delays.size())]).secondsSinceReferenceDate,
                            Reaction{batch, m_run});
    }
}

void Week::react(const Reaction& reaction)
{
    if (reaction.run != m_run) {
        return; // The alert closed with the application.
    }
    if (m_locked) {
        // Nobody can answer an alert on a locked screen.
        m_reactions.emplace(m_lockEnd.secondsSinceReferenceDate, reaction);
        return;
    }
    // No alerts for interview slots, ever: the first one answered takes its series, and with it every other slot
    // on screen.
    for (const auto& alert : reaction.batch.alerts) {
        const MeetingIdentity& identity = alert.occurrence.identity;
        if (identity.seriesIdentifier == kInterviews && m_onScreen.contains({identity, alert.triggerDate})) {
            exclude(identity, ExclusionScope::series);
        }
    }
    std::vector<const ScheduledAlert*> stillShown;
    for (const auto& alert : reaction.batch.alerts) {
        const MeetingIdentity& identity = alert.occurrence.identity;
        if (m_onScreen.contains({identity, alert.triggerDate})) {
            stillShown.push_back(&alert);
        } else if (!onScreen(identity)) {
            // An exclusion or an answer to another alert of the same meeting took it away: nothing to act on.
            ++m_tally.refusalsChecked;
            expectRefusal<AlertSchedulerActionError::OccurrenceIsNotActive>(
                "dismissing an alert no longer shown", [&] { m_scheduler->dismiss(std::span(&identity, 1)); });
        }
    }
    if (stillShown.size() > 1 && m_dice.chance(60)) {
        std::vector<MeetingIdentity> identities;
        for (const auto* alert : stillShown) {
            identities.push_back(alert->occurrence.identity);
        }
        answerAll(identities);
        return;
    }
    for (const auto* alert : stillShown) {
        // An earlier answer in this batch (a series exclusion) may have taken this alert away already.
        if (onScreen(alert->occurrence.identity)) {
            answer(*alert);
        }
    }
}

void Week::answer(const ScheduledAlert& alert)
{
    const MeetingIdentity& identity = alert.occurrence.identity;
    const Date start = alert.occurrence.startDate;
    const auto roll = m_dice.below(100);
    if (roll < 66) {
        dismiss({identity});
        if (m_dice.chance(10)) {
            // A second click on the same alert finds it gone.
            ++m_tally.refusalsChecked;
            expectRefusal<AlertSchedulerActionError::OccurrenceIsNotActive>(
                "dismissing twice", [&] { m_scheduler->dismiss(std::span(&identity, 1)); });
        }
    } else if (roll < 83) {
        if (m_dice.chance(8)) {
            ++m_tally.refusalsChecked;
            expectRefusal<AlertSchedulerActionError::SnoozeMustBeInTheFuture>(
                "snoozing until now", [&] { m_scheduler->snoozeUntil(std::span(&identity, 1), now()); });
            const auto& active = m_scheduler->activeBatches();
            const bool stillActive = std::any_of(active.begin(), active.end(), [&](const AlertBatch& batch) {
                return std::any_of(batch.alerts.begin(), batch.alerts.end(),
                                   [&](const ScheduledAlert& shown) { return shown.occurrence.identity == identity; });
            });
            if (!stillActive) {
                fault("a refused snooze took " + describe(alert) + " off the screen");
            }
        }
        if (roll < 72) {
            snooze({identity}, kMinute);
        } else if (roll < 77 || !(start > now())) {
            snooze({identity}, 5 * kMinute);
        } else {
            snoozeUntilStart(identity, start);
        }
    } else if (roll < 93) {
        exclude(identity, ExclusionScope::occurrence);
    } else if (roll < 96 && m_tally.seriesExclusions < 4) {
        exclude(identity, ExclusionScope::series);
    } else {
        dismiss({identity}); // joined: the alert just goes away
    }
}

void Week::answerAll(const std::vector<MeetingIdentity>& identities)
{
    const auto roll = m_dice.below(100);
    if (roll < 70) {
        dismiss(identities);
    } else {
        snooze(identities, roll < 85 ? kMinute : 5 * kMinute);
    }
}

void Week::dismiss(const std::vector<MeetingIdentity>& identities)
{
    for (const auto& identity : identities) {
        forgetOnScreen([&](const MeetingIdentity& shown) { return shown == identity; });
        auto& track = m_tracks.at(identity);
        if (track.snoozedUntil) {
            track.snoozedUntil.reset();
            track.waitsForRefresh = true;
        }
        ++m_tally.dismissals;
    }
    attempt("dismiss", [&] { m_scheduler->dismiss(identities); });
}

void Week::snooze(const std::vector<MeetingIdentity>& identities, double seconds)
{
    for (const auto& identity : identities) {
        forgetOnScreen([&](const MeetingIdentity& shown) { return shown == identity; });
        auto& track = m_tracks.at(identity);
        track.snoozedUntil = now() + seconds;
        track.knownAt = now();
        track.waitsForRefresh = false;
        ++(seconds == kMinute ? m_tally.snoozesForAMinute : m_tally.snoozesForFiveMinutes);
    }
    attempt("snooze", [&] { m_scheduler->snoozeFor(identities, seconds); });
}

void Week::snoozeUntilStart(const MeetingIdentity& identity, Date start)
{
    forgetOnScreen([&](const MeetingIdentity& shown) { return shown == identity; });
    auto& track = m_tracks.at(identity);
    track.snoozedUntil = start;
    track.knownAt = now();
    track.waitsForRefresh = false;
    ++m_tally.snoozesUntilStart;
    attempt("snooze until the start", [&] { m_scheduler->snoozeUntil(std::span(&identity, 1), start); });
}

void Week::exclude(const MeetingIdentity& identity, ExclusionScope scope)
{
    const Exclusion exclusion{identity.calendarIdentifier, identity.seriesIdentifier,
                              scope == ExclusionScope::occurrence ? std::optional(identity.occurrenceStart)
                                                                  : std::nullopt};
    m_exclusions.push_back(exclusion);
    forgetOnScreen([&](const MeetingIdentity& shown) {
        if (!isExcluded(shown)) {
            return false;
        }
        if (shown != identity) {
            ++m_tally.othersClosedByExclusion;
        }
        return true;
    });
    m_tracks.at(identity).snoozedUntil.reset();
    ++(scope == ExclusionScope::series ? m_tally.seriesExclusions : m_tally.occurrenceExclusions);
    attempt("exclude", [&] { m_scheduler->exclude(identity, scope); });
}

// ---- The world ---------------------------------------------------------------------------------------------------

void Week::perform(Scripted happening)
{
    if (happening.what != Happening::screenUnlock && happening.anchor == Anchor::none) {
        ++m_tally.happenings;
    }
    if (happening.anchor != Anchor::none) {
        std::optional<Date> target;
        if (happening.anchor == Anchor::nextSnoozedAlert) {
            target = nextDue(true);
            if (!target) {
                // Nothing snoozed right now: look again in a few minutes.
                m_script.emplace((now() + 5 * kMinute).secondsSinceReferenceDate, happening);
                return;
            }
        } else {
            target = nextDue();
        }
        happening.anchor = Anchor::none;
        if (target) {
            const Date moved = std::max(now(), *target - happening.ahead);
            if (moved > now()) {
                m_dying = happening.what == Happening::crash;
                m_script.emplace(moved.secondsSinceReferenceDate, happening);
                return;
            }
        }
    }
    switch (happening.what) {
    case Happening::leadTimeChange:
        changeLeadTime(happening.amount);
        break;
    case Happening::fetchOutage:
        loseTheNetwork(static_cast<int>(happening.amount));
        break;
    case Happening::screenLock:
        m_locked = true;
        m_lockEnd = now() + happening.amount;
        m_script.emplace(m_lockEnd.secondsSinceReferenceDate, Scripted{0, Happening::screenUnlock});
        break;
    case Happening::screenUnlock:
        unlockScreen();
        break;
    case Happening::sleep:
        sleep(happening.amount);
        break;
    case Happening::clockChange:
        changeClock(happening.amount);
        break;
    case Happening::calendarEdits:
        editCalendars();
        break;
    case Happening::overlappingRefreshes:
        overlapRefreshes();
        break;
    case Happening::restart:
        restart(happening.amount);
        break;
    case Happening::crash:
        crash(happening.amount);
        break;
    }
}

void Week::changeLeadTime(double seconds)
{
    m_leadTime = seconds;
    recover(now());
    NotifierSettings settings = m_settingsStore->settings();
    settings.alertLeadTime = seconds;
    m_settingsStore->save(settings);
    refreshNow();
}

void Week::loseTheNetwork(int failures)
{
    double worstCase = 0;
    for (int failure = 1; failure <= failures; ++failure) {
        worstCase += retryDelay(failure);
    }
    // Every refresh in between, for whatever reason, only uses up the failures sooner.
    m_outageMustEndBy = now() + worstCase;
    m_provider.failingFetches = failures;
    m_provider.announceChange();
    if (!m_outage) {
        fault("a failed fetch after a calendar change was not reported");
    }
}

void Week::unlockScreen()
{
    m_locked = false;
    for (const auto& key : m_heldBack) {
        m_tracks.at(key.identity).knownAt = now();
    }
    m_heldBack.clear();
    m_scheduler->presentationSurfaceDidBecomeAvailable();
}

void Week::sleep(double seconds)
{
    // The clock moves on while no timer can fire; on wake the overdue timer fires, and the application model
    // may refresh as well.
    m_clock.set(now() + seconds);
    recover(now());
    m_timers.runDue();
    if (m_dice.chance(50)) {
        refreshNow();
    }
}

void Week::changeClock(double seconds)
{
    m_clock.set(now() + seconds);
    recover(now());
    // The user's reactions are seconds after the alert in real time, whatever the clock says.
    std::multimap<double, Reaction> shifted;
    for (const auto& [date, reaction] : m_reactions) {
        shifted.emplace(date + seconds, reaction);
    }
    m_reactions = std::move(shifted);
    // The overdue timer and the application's clock-change refresh may come in either order.
    if (m_dice.chance(50)) {
        m_timers.runDue();
        refreshNow();
    } else {
        refreshNow();
        m_timers.runDue();
    }
}

std::vector<const Track*> Week::futureMeetings(Date after) const
{
    std::vector<const Track*> found;
    for (const auto& [identity, track] : m_tracks) {
        if (track.inCalendar && isEligible(track.occurrence) && track.occurrence.startDate > after) {
            found.push_back(&track);
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Track* lhs, const Track* rhs) { return listedBefore(lhs->occurrence, rhs->occurrence); });
    return found;
}

void Week::addMeeting(MeetingOccurrence meeting)
{
    m_provider.meetings.push_back(meeting);
    const MeetingIdentity identity = meeting.identity;
    m_tracks.insert_or_assign(identity, Track{std::move(meeting), true, std::nullopt, now(), false});
}

/// The calendar now holds `meeting` under the same identity (cancelled, declined).
void Week::replaceMeeting(const MeetingOccurrence& meeting)
{
    for (auto& held : m_provider.meetings) {
        if (held.identity == meeting.identity) {
            held = meeting;
        }
    }
    auto& track = m_tracks.at(meeting.identity);
    track.occurrence = meeting;
    track.knownAt = now();
}

void Week::editCalendars()
{
    ++m_edits;
    // At short notice: with a lead time over two minutes its alert is due the moment it is added.
    const double soon = std::ceil(now().secondsSinceReferenceDate / kMinute) * kMinute + 2 * kMinute;
    addMeeting(fixtures::meeting(u"short-notice-%1"_s.arg(m_edits), soon, 30));
    // Next to an existing meeting, at the very same start: the two alert together.
    if (const auto later = futureMeetings(now() + 15 * kMinute); !later.empty()) {
        addMeeting(fixtures::meeting(u"twin-%1"_s.arg(m_edits),
                                     later.front()->occurrence.startDate.secondsSinceReferenceDate, 45, u"cal-team"_s));
    }
    // Cancel a meeting the user snoozed if there is one (its snooze must not fire), else one an hour or more ahead.
    const Track* snoozed = nullptr;
    for (const auto* track : futureMeetings(now() - kDay)) {
        if (track->snoozedUntil && *track->snoozedUntil > now() && track->occurrence.endDate > now()) {
            snoozed = track;
            break;
        }
    }
    const auto candidates = futureMeetings(now() + kHour);
    if (snoozed == nullptr && !candidates.empty()) {
        snoozed = candidates[m_dice.below(candidates.size())];
    }
    if (snoozed != nullptr) {
        auto cancelled = snoozed->occurrence;
        cancelled.isCanceled = true;
        replaceMeeting(cancelled);
    }
    if (const auto later = futureMeetings(now() + kHour); !later.empty()) {
        auto declined = later[m_dice.below(later.size())]->occurrence;
        declined.participationStatus = MeetingParticipationStatus::declined;
        replaceMeeting(declined);
    }
    // Moved 25 minutes later: the occurrence keeps its key in the series but is scheduled anew.
    if (const auto later = futureMeetings(now() + 30 * kMinute); !later.empty()) {
        MeetingOccurrence moved = later[m_dice.below(later.size())]->occurrence;
        m_tracks.at(moved.identity).inCalendar = false;
        std::erase_if(m_provider.meetings,
                      [&](const MeetingOccurrence& held) { return held.identity == moved.identity; });
        moved.startDate = moved.startDate + 25 * kMinute;
        moved.endDate = moved.endDate + 25 * kMinute;
        moved.identity.scheduledStart = moved.startDate;
        addMeeting(moved);
    }
    m_provider.announceChange();
}

void Week::overlapRefreshes()
{
    const int succeeded = m_tally.refreshes;
    m_fetchHeld = true;
    m_provider.holdFetches = true;
    m_provider.announceChange();
    if (!m_timers.armed().empty()) {
        fault("a timer stays armed while its refresh waits for the calendars");
    }
    if (!m_scheduler->isRefreshing()) {
        fault("a refresh waiting for the calendars is not published");
    }
    // While the first fetch waits, a meeting is added and the calendars announce the change: the second refresh
    // is the one that counts.
    ++m_edits;
    const double soon = std::ceil(now().secondsSinceReferenceDate / kMinute) * kMinute + 3 * kMinute;
    addMeeting(fixtures::meeting(u"while-fetching-%1"_s.arg(m_edits), soon, 15, u"cal-team"_s));
    m_provider.announceChange();
    m_provider.holdFetches = false;
    m_fetchHeld = false;
    m_provider.release();
    // Waiting fetches resume from the event loop, as in the application: in the order they started.
    QCoreApplication::sendPostedEvents(&m_provider, QEvent::MetaCall);
    if (m_tally.refreshes != succeeded + 1) {
        fault("two overlapping refreshes finished " + std::to_string(m_tally.refreshes - succeeded) + " times");
    }
}

void Week::restart(double closedFor)
{
    if (m_locked || m_outage || !m_unacknowledged.empty()) {
        fault("the script restarts the application at a moment it cannot predict");
        return;
    }
    const NotifierSettings settings = m_settingsStore->settings();
    const std::vector<ExclusionRecord> exclusions = m_exclusionStore->records();
    const std::vector<DeliveryRecord> deliveries = m_deliveryStore->records();
    const std::vector<SnoozeRecord> snoozes = m_deliveryStore->snoozes();
    for (const auto& [identity, track] : m_tracks) {
        if (track.snoozedUntil && *track.snoozedUntil > now()) {
            m_snoozedAcrossRestart.insert({identity, *track.snoozedUntil});
        }
    }

    closeApplication();
    if (!m_timers.armed().empty()) {
        fault("a closed application left a timer armed");
    }
    m_onScreen.clear();
    m_clock.set(now() + closedFor);
    recover(now());

    openApplication();
    EXPECT_EQ(m_settingsStore->settings(), settings) << "settings lost across a restart";
    EXPECT_EQ(m_exclusionStore->records(), exclusions) << "exclusions lost across a restart";
    EXPECT_EQ(m_deliveryStore->records(), deliveries) << "reminder history lost across a restart";
    EXPECT_EQ(m_deliveryStore->snoozes(), snoozes) << "snoozes lost across a restart";
    startScheduler();
}

void Week::crash(double closedFor)
{
    // What was handed out but never shown is not in the history as shown: the next run must offer it again.
    m_abandoned.insert(m_handedOut.begin(), m_handedOut.end());
    m_tally.abandonedByCrash += static_cast<int>(m_handedOut.size());
    m_handedOut.clear();
    m_unacknowledged.clear();
    m_dying = false;
    restart(closedFor);
}

// ---- The oracle --------------------------------------------------------------------------------------------------

bool Week::isExcluded(const MeetingIdentity& identity) const
{
    return std::any_of(m_exclusions.begin(), m_exclusions.end(), [&](const Exclusion& exclusion) {
        return exclusion.calendar == identity.calendarIdentifier && exclusion.series == identity.seriesIdentifier &&
               (!exclusion.occurrenceStart || *exclusion.occurrenceStart == identity.occurrenceStart);
    });
}

bool Week::isEligible(const MeetingOccurrence& meeting) const
{
    return !meeting.isAllDay && !meeting.isCanceled &&
           meeting.participationStatus != MeetingParticipationStatus::declined && meeting.endDate > meeting.startDate &&
           !isExcluded(meeting.identity);
}

std::optional<Expected> Week::expectedAlert(const Track& track) const
{
    const MeetingOccurrence& meeting = track.occurrence;
    if (!track.inCalendar || !isEligible(meeting) || meeting.endDate <= now()) {
        return std::nullopt;
    }
    Expected expected;
    if (track.snoozedUntil) {
        if (*track.snoozedUntil < now() - kGrace) {
            return std::nullopt;
        }
        expected.trigger = *track.snoozedUntil;
        expected.reason = AlertReason::snoozed;
    } else {
        if (meeting.startDate < now() - kGrace) {
            return std::nullopt;
        }
        expected.trigger = meeting.startDate - m_leadTime;
    }
    if (m_shown.contains({meeting.identity, expected.trigger})) {
        return std::nullopt;
    }
    expected.due = std::max(expected.trigger, track.knownAt);
    return expected;
}

/// The next moment an alert is owed, after now.
std::optional<Date> Week::nextDue(bool snoozedOnly) const
{
    std::optional<Date> next;
    for (const auto& [identity, track] : m_tracks) {
        const auto expected = track.waitsForRefresh ? std::nullopt : expectedAlert(track);
        if (expected && expected->due > now() && (!snoozedOnly || expected->reason == AlertReason::snoozed) &&
            (!next || expected->due < *next)) {
            next = expected->due;
        }
    }
    return next;
}

/// The earliest trigger still to come: what the scheduler's timer must be armed for.
std::optional<Date> Week::nextTrigger() const
{
    std::optional<Date> next;
    for (const auto& [identity, track] : m_tracks) {
        const auto expected = expectedAlert(track);
        if (expected && expected->trigger > now() && (!next || expected->trigger < *next)) {
            next = expected->trigger;
        }
    }
    return next;
}

/// The scheduler could not act until `from` (it slept, was closed, its clock jumped, its fetches failed): every
/// alert that fell due in between is owed now, if it is still within the grace.
void Week::recover(Date from)
{
    for (auto& [identity, track] : m_tracks) {
        track.knownAt = from;
    }
}

/// Bookkeeping for a refresh the scheduler is in (its events arrive while it runs, at one instant).
void Week::noteRefresh(bool fetched)
{
    for (auto& [identity, track] : m_tracks) {
        // Every refresh prunes snoozes that ended over a minute ago; the meeting falls back to its initial alert.
        if (track.snoozedUntil && *track.snoozedUntil < now() - kGrace) {
            track.snoozedUntil.reset();
            track.knownAt = now();
        }
        if (track.waitsForRefresh) {
            track.waitsForRefresh = false;
            track.knownAt = now();
        }
    }
    if (fetched && m_outage) {
        if (now() > m_outageMustEndBy) {
            fault("the scheduler recovered from failed fetches only at " + when(now()));
        }
        m_outage = false;
        recover(now());
    }
    if (fetched) {
        m_failuresInARow = 0;
    }
}

void Week::forgetOnScreen(const std::function<bool(const MeetingIdentity&)>& leaves)
{
    std::erase_if(m_onScreen, [&](const DeliveryKey& key) { return leaves(key.identity); });
}

bool Week::onScreen(const MeetingIdentity& identity) const
{
    return std::any_of(m_onScreen.begin(), m_onScreen.end(),
                       [&](const DeliveryKey& key) { return key.identity == identity; });
}

void Week::checkAlert(const ScheduledAlert& alert)
{
    const DeliveryKey key{alert.occurrence.identity, alert.triggerDate};
    if (m_shown.contains(key)) {
        fault(describe(alert) + " was shown a second time");
        return;
    }
    if (m_heldBack.contains(key)) {
        fault(describe(alert) + " was offered again while the screen was still locked");
        return;
    }
    if (!m_handedOut.insert(key).second) {
        fault(describe(alert) + " was handed out twice");
        return;
    }
    const auto track = m_tracks.find(key.identity);
    if (track == m_tracks.end() || !track->second.inCalendar) {
        fault(describe(alert) + " is not in the calendar");
        return;
    }
    if (alert.occurrence != track->second.occurrence) {
        fault(describe(alert) + " carries stale meeting data");
    }
    const auto expected = expectedAlert(track->second);
    if (!expected) {
        fault(describe(alert) + " must not come at all (ended, excluded, ineligible or past the grace)");
        return;
    }
    if (expected->trigger != alert.triggerDate || expected->reason != alert.reason) {
        fault(describe(alert) + " instead of the " +
              (expected->reason == AlertReason::snoozed ? "snoozed" : "initial") + " alert triggered " +
              when(expected->trigger));
        return;
    }
    if (expected->due != now()) {
        fault(describe(alert) + " was due at " + when(expected->due));
    }
    ++(alert.reason == AlertReason::snoozed ? m_tally.snoozedAlerts : m_tally.initialAlerts);
    if (now() > alert.triggerDate) {
        ++m_tally.lateAlerts;
    }
    if (m_everHeldBack.contains(key)) {
        ++m_tally.offeredAgain;
    }
    if (m_snoozedAcrossRestart.contains(key)) {
        ++m_tally.snoozesFiredAfterRestart;
    }
    if (m_abandoned.contains(key)) {
        ++m_tally.offeredAfterCrash;
    }
}

void Week::checkUpcoming()
{
    std::vector<const MeetingOccurrence*> upcoming;
    for (const auto& [identity, track] : m_tracks) {
        const auto& meeting = track.occurrence;
        if (track.inCalendar && isEligible(meeting) && meeting.endDate > now() &&
            meeting.startDate <= now() + kLookAhead) {
            upcoming.push_back(&meeting);
        }
    }
    std::sort(upcoming.begin(), upcoming.end(),
              [](const MeetingOccurrence* lhs, const MeetingOccurrence* rhs) { return listedBefore(*lhs, *rhs); });
    upcoming.resize(std::min<std::size_t>(upcoming.size(), 10));
    m_lastUpcoming.clear();
    for (const auto& meeting : m_scheduler->upcoming()) {
        m_lastUpcoming.push_back(meeting.identity);
    }
    bool same = upcoming.size() == m_lastUpcoming.size();
    for (std::size_t index = 0; same && index < upcoming.size(); ++index) {
        same = upcoming[index]->identity == m_lastUpcoming[index];
    }
    if (!same) {
        fault("the upcoming list is not the next ten eligible meetings");
    }

    const auto interval = m_provider.intervals.back();
    if (interval.start != now() - kLookBehind || interval.end != now() + kLookAhead) {
        fault("the calendars were read for the wrong interval");
    }
    // The one timer is armed for the earliest trigger still to come, or a day ahead when there is none.
    const auto next = nextTrigger();
    if (m_scheduler->nextTriggerDate() != next) {
        fault("the next trigger is published as " +
              (m_scheduler->nextTriggerDate() ? when(*m_scheduler->nextTriggerDate()) : std::string("none")) +
              " instead of " + (next ? when(*next) : std::string("none")));
    }
    const std::vector<Date> armed = {next.value_or(now() + kIdleWakeUp)};
    if (m_timers.armed() != armed) {
        fault("the timer is not armed for " + when(armed.front()));
    }
}

void Week::checkStep()
{
    const std::size_t armed = m_timers.armed().size();
    if (armed != (m_fetchHeld ? 0 : 1)) {
        fault(std::to_string(armed) + " timers are armed");
    }

    std::unordered_set<DeliveryKey> active;
    for (const auto& batch : m_scheduler->activeBatches()) {
        for (const auto& alert : batch.alerts) {
            active.insert({alert.occurrence.identity, alert.triggerDate});
        }
    }
    auto expectedActive = m_onScreen;
    expectedActive.insert(m_handedOut.begin(), m_handedOut.end());
    if (active != expectedActive) {
        fault("the scheduler holds " + std::to_string(active.size()) + " active alerts instead of " +
              std::to_string(expectedActive.size()));
    }

    // The stored snoozes are the oracle's: set by snoozes, cleared by a dismiss or an exclusion, pruned a minute
    // after they ended.
    std::unordered_map<MeetingIdentity, Date> stored;
    for (const auto& snooze : m_deliveryStore->snoozes()) {
        stored.insert_or_assign(snooze.identity, snooze.snoozedUntil);
    }
    std::unordered_map<MeetingIdentity, Date> snoozed;
    for (const auto& [identity, track] : m_tracks) {
        if (track.snoozedUntil) {
            snoozed.emplace(identity, *track.snoozedUntil);
        }
    }
    if (stored != snoozed) {
        fault("the store holds " + std::to_string(stored.size()) + " snoozes instead of " +
              std::to_string(snoozed.size()));
    }

    if (m_outage) {
        if (now() > m_outageMustEndBy) {
            fault("the scheduler is still failing to fetch");
        }
        return; // Owed alerts wait for the first good fetch.
    }
    for (const auto& [identity, track] : m_tracks) {
        const auto expected = track.waitsForRefresh ? std::nullopt : expectedAlert(track);
        if (!expected || expected->due > now()) {
            continue;
        }
        const DeliveryKey key{identity, expected->trigger};
        if (!m_heldBack.contains(key) && !m_handedOut.contains(key) && m_reportedMissing.insert(key).second) {
            fault(std::string(expected->reason == AlertReason::snoozed ? "snoozed" : "initial") + " alert of " +
                  describe(track.occurrence) + " triggered " + when(expected->trigger) + " was not handed out at " +
                  when(expected->due));
        }
    }
}

void Week::fault(const std::string& what)
{
    ++m_faults;
    ADD_FAILURE() << when(now()) << ": " << what;
}

template <class Action>
void Week::attempt(const char* what, Action&& action)
{
    try {
        action();
    } catch (const std::exception& error) {
        fault(std::string(what) + " was refused: " + error.what());
    }
}

template <class Refusal, class Action>
void Week::expectRefusal(const char* what, Action&& action)
{
    try {
        action();
        fault(std::string(what) + " was accepted");
    } catch (const AlertSchedulerActionError& error) {
        if (!std::holds_alternative<Refusal>(error.value())) {
            fault(std::string(what) + " was refused for the wrong reason: " + error.what());
        }
    } catch (const std::exception& error) {
        fault(std::string(what) + " failed: " + error.what());
    }
}

TEST(SimulatedWeek, EveryAlertComesOnceOnTimeOrWithinTheGraceAndNothingIsLost)
{
    Week week(20'240'611);
    const Tally tally = week.live();

    const std::pair<const char*, int> record[] = {
        {"meetings", tally.meetings},
        {"happenings", tally.happenings},
        {"refreshes", tally.refreshes},
        {"fetchFailures", tally.fetchFailures},
        {"batches", tally.batches},
        {"sharedBatches", tally.sharedBatches},
        {"largestBatch", tally.largestBatch},
        {"initialAlerts", tally.initialAlerts},
        {"snoozedAlerts", tally.snoozedAlerts},
        {"lateAlerts", tally.lateAlerts},
        {"heldBack", tally.heldBack},
        {"offeredAgain", tally.offeredAgain},
        {"snoozesFiredAfterRestart", tally.snoozesFiredAfterRestart},
        {"abandonedByCrash", tally.abandonedByCrash},
        {"offeredAfterCrash", tally.offeredAfterCrash},
        {"neverAnnounced", tally.neverAnnounced},
        {"dismissals", tally.dismissals},
        {"snoozesForAMinute", tally.snoozesForAMinute},
        {"snoozesForFiveMinutes", tally.snoozesForFiveMinutes},
        {"snoozesUntilStart", tally.snoozesUntilStart},
        {"occurrenceExclusions", tally.occurrenceExclusions},
        {"seriesExclusions", tally.seriesExclusions},
        {"othersClosedByExclusion", tally.othersClosedByExclusion},
        {"refusalsChecked", tally.refusalsChecked},
    };
    for (const auto& [key, value] : record) {
        testing::Test::RecordProperty(key, value);
    }

    // The week really went through what it is meant to cover.
    EXPECT_EQ(tally.happenings, static_cast<int>(kScript.size()));
    EXPECT_GE(tally.meetings, 300);
    EXPECT_GE(tally.initialAlerts, 200);
    EXPECT_GE(tally.snoozedAlerts, 50);
    EXPECT_GE(tally.sharedBatches, 10);
    EXPECT_GE(tally.lateAlerts, 5);
    EXPECT_GE(tally.heldBack, 2);
    EXPECT_GE(tally.offeredAgain, 1);
    EXPECT_GE(tally.snoozesFiredAfterRestart, 1);
    EXPECT_GE(tally.abandonedByCrash, 1);
    EXPECT_EQ(tally.offeredAfterCrash, tally.abandonedByCrash);
    EXPECT_GE(tally.neverAnnounced, 1);
    EXPECT_EQ(tally.fetchFailures, 1 + 3 + 6 + 2 + 1);
    EXPECT_GE(tally.seriesExclusions, 2);
    EXPECT_GE(tally.othersClosedByExclusion, 1);
    EXPECT_GE(tally.snoozesUntilStart, 5);
    EXPECT_GE(tally.refusalsChecked, 5);
}

} // namespace
