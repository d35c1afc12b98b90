// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingPolicy.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace orvane {
namespace {

/// Monday 2025-01-06 10:00 UTC; every case is told in wall-clock times around it.
constexpr double kTen = 757'850'400;

constexpr double at(int hour, int minute, int second = 0)
{
    return kTen + (hour - 10) * 3600.0 + minute * 60.0 + second;
}

enum class Flaw { none, declined, excluded, allDay };

struct Meeting {
    const char* series;
    double start;
    double minutes = 30;
    const char* calendar = "cal-work";
    Flaw flaw = Flaw::none;
};

struct Delivery {
    const char* series;
    double trigger;
    DeliveryStatus status = DeliveryStatus::confirmed;
};

struct Snooze {
    const char* series;
    double until;
    const char* calendar = "cal-work";
    /// The occurrence the snooze was recorded for, when not the meeting's own (another day of the series).
    std::optional<double> occurrenceStart = std::nullopt;
};

struct Case {
    const char* name;
    std::vector<Meeting> meetings;
    double now;
    /// What the schedule holds, as "upcoming <series…> | due <trigger> [<series…>], … | next <trigger>".
    const char* expected;
    double leadTime = 300;
    std::vector<Delivery> deliveries = {};
    std::vector<Snooze> snoozes = {};
    friend void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }
};

QString clockTime(Date date)
{
    const QTime time = date.toDateTime().time();
    return time.toString(time.msec() != 0 ? u"HH:mm:ss.zzz"_s : time.second() != 0 ? u"HH:mm:ss"_s : u"HH:mm"_s);
}

/// A meeting by its series, and by its calendar too when that is not the work calendar.
QString name(const MeetingOccurrence& occurrence)
{
    const QString& calendar = occurrence.calendar.identifier;
    return occurrence.identity.seriesIdentifier + (calendar == u"cal-work"_s ? QString() : u'/' + calendar);
}

/// The whole schedule in one line, so that a table row states every output at once.
QString describe(const MeetingSchedule& schedule)
{
    QStringList upcoming;
    for (const auto& occurrence : schedule.upcoming) {
        upcoming << name(occurrence);
    }
    QStringList batches;
    for (const auto& batch : schedule.dueBatches) {
        QStringList alerts;
        for (const auto& alert : batch.alerts) {
            QString text = name(alert.occurrence);
            if (alert.reason == AlertReason::snoozed) {
                text += u"(snoozed)"_s;
            }
            if (alert.triggerDate != batch.triggerDate) {
                text += u"@"_s + clockTime(alert.triggerDate);
            }
            alerts << text;
        }
        batches << clockTime(batch.triggerDate) + u" ["_s + alerts.join(u' ') + u']';
    }
    return u"upcoming %1 | due %2 | next %3"_s.arg(
        upcoming.isEmpty() ? u"-"_s : upcoming.join(u' '), batches.isEmpty() ? u"-"_s : batches.join(u", "_s),
        schedule.nextTriggerDate ? clockTime(*schedule.nextTriggerDate) : u"-"_s);
}

MeetingOccurrence occurrence(const Meeting& meeting)
{
    auto result = fixtures::meeting(QString::fromUtf8(meeting.series), meeting.start, meeting.minutes,
                                    QString::fromUtf8(meeting.calendar));
    result.participationStatus =
        meeting.flaw == Flaw::declined ? MeetingParticipationStatus::declined : MeetingParticipationStatus::accepted;
    result.isAllDay = meeting.flaw == Flaw::allDay;
    return result;
}

MeetingSchedule schedule(const Case& c)
{
    std::vector<MeetingOccurrence> occurrences;
    std::vector<ExclusionRecord> exclusions;
    for (const auto& meeting : c.meetings) {
        occurrences.push_back(occurrence(meeting));
        if (meeting.flaw == Flaw::excluded) {
            exclusions.push_back(fixtures::exclusion(occurrences.back().identity));
        }
    }
    const auto identityOf = [&](const char* series) {
        const auto found = std::find_if(occurrences.begin(), occurrences.end(), [&](const auto& o) {
            return o.identity.seriesIdentifier == QString::fromUtf8(series);
        });
        return found->identity;
    };
    std::vector<DeliveryRecord> deliveries;
    for (const auto& delivery : c.deliveries) {
        deliveries.push_back(
            {identityOf(delivery.series), Date{delivery.trigger}, delivery.status, Date{delivery.trigger}});
    }
    std::vector<SnoozeRecord> snoozes;
    for (const auto& snooze : c.snoozes) {
        const double start =
            snooze.occurrenceStart.value_or(identityOf(snooze.series).occurrenceStart.secondsSinceReferenceDate);
        const auto identity =
            fixtures::identity(QString::fromUtf8(snooze.series), start, QString::fromUtf8(snooze.calendar));
        snoozes.push_back({identity, Date{snooze.until}, Date{c.now}});
    }
    NotifierSettings settings;
    settings.alertLeadTime = c.leadTime;
    return MeetingPolicy{}.makeSchedule(occurrences, settings, ExclusionMatcher(exclusions), deliveries, snoozes,
                                        Date{c.now});
}

using enum DeliveryStatus;

const Case kCases[] = {
    // Order: start, then end, then calendar identifier (byte order: "Cal-B" before "cal-a"), then series.
    {"OccurrenceAndAlertOrder",
     {{"z", at(10, 0), 30, "cal-a"},
      {"y", at(10, 0), 30, "Cal-B"},
      {"x", at(10, 0), 60, "cal-a"},
      {"w", at(9, 30), 60, "cal-b"},
      {"v", at(10, 0), 30, "cal-a"}},
     at(10, 0),
     "upcoming w/cal-b y/Cal-B v/cal-a z/cal-a x/cal-a | due 10:00 [y/Cal-B v/cal-a z/cal-a x/cal-a] | next -",
     0},
    // A snoozed alert and an initial one falling due together are ordered by their meetings, not by reason.
    {"SnoozedAndInitialShareABatchInMeetingOrder",
     {{"late", at(10, 5)}, {"early", at(9, 30), 60}},
     at(10, 0),
     "upcoming early late | due 10:00 [early(snoozed) late] | next -",
     300,
     {},
     {{"early", at(10, 0)}}},
    {"LeadTimeZeroIsDueAtTheStartInstant", {{"a", at(10, 0)}}, at(10, 0), "upcoming a | due 10:00 [a] | next -", 0},
    {"LeadTimeZeroNotDueASecondEarly", {{"a", at(10, 0)}}, at(9, 59, 59), "upcoming a | due - | next 10:00", 0},
    {"FractionalLeadTimeIsKept", {{"a", at(10, 0)}}, at(9, 0), "upcoming a | due - | next 09:59:59.500", 0.5},
    {"EqualTriggersShareABatch",
     {{"c", at(10, 1)}, {"b", at(10, 0)}, {"a", at(10, 0)}},
     at(9, 55),
     "upcoming a b c | due 09:55 [a b] | next 09:56"},
    {"OneMinuteApartAreTwoBatches",
     {{"c", at(10, 1)}, {"b", at(10, 0)}, {"a", at(10, 0)}},
     at(9, 58),
     "upcoming a b c | due 09:55 [a b], 09:56 [c] | next -"},
    // No tolerance: half a second apart is not "the same moment".
    {"NearlyEqualTriggersAreTwoBatches",
     {{"a", at(10, 0)}, {"b", at(10, 0) + 0.5}},
     at(9, 56),
     "upcoming a b | due 09:55 [a], 09:55:00.500 [b] | next -"},
    {"NextIsTheEarliestFutureTrigger",
     {{"c", at(11, 0)}, {"b", at(10, 30)}, {"a", at(10, 0)}},
     at(9, 56),
     "upcoming a b c | due 09:55 [a] | next 10:25"},
    // Asleep at the trigger: the alert is due on wake with its original trigger date.
    {"StartedFiftyNineSecondsAgoIsStillAnnounced",
     {{"a", at(10, 0)}},
     at(10, 0, 59),
     "upcoming a | due 09:55 [a] | next -"},
    {"StartedExactlyAMinuteAgoIsStillAnnounced", {{"a", at(10, 0)}}, at(10, 1), "upcoming a | due 09:55 [a] | next -"},
    {"StartedSixtyOneSecondsAgoIsListedButSilent", {{"a", at(10, 0)}}, at(10, 1, 1), "upcoming a | due - | next -"},
    {"ListedUntilItsLastSecond", {{"a", at(10, 0)}}, at(10, 29, 59), "upcoming a | due - | next -"},
    {"GoneOnceEnded", {{"a", at(10, 0)}}, at(10, 30), "upcoming - | due - | next -"},
    {"ConfirmedDeliverySuppresses",
     {{"a", at(10, 0)}},
     at(9, 56),
     "upcoming a | due - | next -",
     300,
     {{"a", at(9, 55)}}},
    {"ConfirmedDeliveryOfAFutureAlertSuppressesIt",
     {{"a", at(10, 0)}},
     at(9, 0),
     "upcoming a | due - | next -",
     300,
     {{"a", at(9, 55)}}},
    {"PendingDeliveryDoesNotSuppress",
     {{"a", at(10, 0)}},
     at(9, 56),
     "upcoming a | due 09:55 [a] | next -",
     300,
     {{"a", at(9, 55), pending}}},
    // Shown at a ten-minute lead time, which the user then shortened: the new trigger is a new alert.
    {"DeliveryAtAnotherTriggerDoesNotSuppress",
     {{"a", at(10, 0)}},
     at(9, 56),
     "upcoming a | due 09:55 [a] | next -",
     300,
     {{"a", at(9, 50)}}},
    {"DeliveryOfAnotherMeetingDoesNotSuppress",
     {{"a", at(10, 0)}, {"b", at(10, 0)}},
     at(9, 56),
     "upcoming a b | due 09:55 [b] | next -",
     300,
     {{"a", at(9, 55)}}},
    {"SnoozedAlertReplacesTheInitialOne",
     {{"a", at(10, 0)}},
     at(9, 56),
     "upcoming a | due - | next 10:03",
     300,
     {},
     {{"a", at(10, 3)}}},
    // The initial alert was shown and snoozed: the snooze still alerts although the meeting has started.
    {"SnoozeEndAfterTheStartAlerts",
     {{"a", at(10, 0)}},
     at(10, 3),
     "upcoming a | due 10:03 [a(snoozed)] | next -",
     300,
     {{"a", at(9, 55)}},
     {{"a", at(10, 3)}}},
    {"SnoozeEndedAMinuteAgoStillAlerts",
     {{"a", at(10, 0)}},
     at(10, 4),
     "upcoming a | due 10:03 [a(snoozed)] | next -",
     300,
     {},
     {{"a", at(10, 3)}}},
    {"SnoozeEndedLongerAgoGivesNoAlert",
     {{"a", at(10, 0)}},
     at(10, 4, 1),
     "upcoming a | due - | next -",
     300,
     {},
     {{"a", at(10, 3)}}},
    // A stale snooze is not replaced by the initial alert, even one that would be due now.
    {"StaleSnoozeSilencesTheInitialAlertToo",
     {{"a", at(11, 0)}},
     at(10, 56),
     "upcoming a | due - | next -",
     300,
     {},
     {{"a", at(10, 0)}}},
    {"ConfirmedSnoozedAlertIsNotRepeated",
     {{"a", at(10, 0)}},
     at(10, 3, 30),
     "upcoming a | due - | next -",
     300,
     {{"a", at(10, 3)}},
     {{"a", at(10, 3)}}},
    {"EndedMeetingIgnoresAPendingSnooze",
     {{"a", at(10, 0), 5}},
     at(10, 10),
     "upcoming - | due - | next -",
     300,
     {},
     {{"a", at(10, 10)}}},
    {"LastSnoozeRecordWinsLater",
     {{"a", at(10, 0)}},
     at(10, 3, 30),
     "upcoming a | due - | next 10:07",
     300,
     {},
     {{"a", at(10, 3)}, {"a", at(10, 7)}}},
    {"LastSnoozeRecordWinsEarlier",
     {{"a", at(10, 0)}},
     at(10, 3, 30),
     "upcoming a | due 10:03 [a(snoozed)] | next -",
     300,
     {},
     {{"a", at(10, 7)}, {"a", at(10, 3)}}},
    // A snooze belongs to one occurrence: yesterday's snooze of the same series does not touch today's meeting.
    {"SnoozeOfAnotherOccurrenceDoesNotApply",
     {{"a", at(10, 0)}},
     at(9, 56),
     "upcoming a | due 09:55 [a] | next -",
     300,
     {},
     {{"a", at(10, 3), "cal-work", at(10, 0) - 86'400}}},
    // The same invitation in two calendars is two meetings; snoozing one leaves the other alone.
    {"SnoozeOfTheSameMeetingInAnotherCalendarDoesNotApply",
     {{"a", at(10, 0), 30, "cal-work"}, {"a", at(10, 0), 30, "cal-home"}},
     at(9, 56),
     "upcoming a/cal-home a | due 09:55 [a] | next 10:03",
     300,
     {},
     {{"a", at(10, 3), "cal-home"}}},
    {"IneligibleMeetingsAppearNowhere",
     {{"declined", at(10, 0), 30, "cal-work", Flaw::declined},
      {"excluded", at(10, 0), 30, "cal-work", Flaw::excluded},
      {"allday", at(10, 0), 30, "cal-work", Flaw::allDay},
      {"ok", at(10, 0)},
      {"declinedLater", at(11, 0), 30, "cal-work", Flaw::declined},
      {"excludedLater", at(11, 0), 30, "cal-work", Flaw::excluded}},
     at(9, 55),
     "upcoming ok | due 09:55 [ok] | next -",
     300,
     {},
     {{"declined", at(9, 57)}, {"excluded", at(9, 57)}}},
    {"NothingAtAll", {}, at(10, 0), "upcoming - | due - | next -"},
};

class MeetingScheduleTest : public testing::TestWithParam<Case> {};

TEST_P(MeetingScheduleTest, Computes)
{
    EXPECT_EQ(describe(schedule(GetParam())), QString::fromUtf8(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(MeetingSchedule, MeetingScheduleTest, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(MeetingScheduleLimits, ListsTenButAlertsForAll)
{
    // Twelve meetings, one a minute from 10:00, handed over shuffled as a calendar source might.
    std::vector<std::string> names;
    std::vector<Meeting> meetings;
    for (int minute = 0; minute < 12; ++minute) {
        names.push_back("m" + std::to_string(10 + minute));
    }
    for (int minute = 0; minute < 12; ++minute) {
        meetings.push_back({names[minute].c_str(), at(10, minute)});
    }
    std::shuffle(meetings.begin(), meetings.end(), std::mt19937(7));

    const Case c{"", meetings, at(9, 30), "", 3600};
    EXPECT_EQ(describe(schedule(c)),
              u"upcoming m10 m11 m12 m13 m14 m15 m16 m17 m18 m19 | due 09:00 [m10], 09:01 [m11], 09:02 [m12], "
              u"09:03 [m13], 09:04 [m14], 09:05 [m15], 09:06 [m16], 09:07 [m17], 09:08 [m18], 09:09 [m19], "
              u"09:10 [m20], 09:11 [m21] | next -"_s);
}

TEST(MeetingScheduleOrder, EachKeyDecidesOnlyOnTies)
{
    struct Pair {
        MeetingOccurrence first;
        MeetingOccurrence second;
    };
    const auto meeting = [](const char* series, double start, double minutes, const char* calendar) {
        return occurrence({series, start, minutes, calendar});
    };
    // Each pair in order; every key decides only when the ones before it are equal.
    const Pair pairs[] = {
        {meeting("z", at(9, 59), 120, "z"), meeting("a", at(10, 0), 1, "a")},
        {meeting("z", at(10, 0), 29, "z"), meeting("a", at(10, 0), 30, "a")},
        {meeting("z", at(10, 0), 30, "Z"), meeting("a", at(10, 0), 30, "a")},
        {meeting("a", at(10, 0), 30, "cal"), meeting("b", at(10, 0), 30, "cal")},
        {meeting("B", at(10, 0), 30, "cal"), meeting("a", at(10, 0), 30, "cal")},
    };
    for (const auto& [first, second] : pairs) {
        EXPECT_TRUE(MeetingPolicy::occursBefore(first, second)) << first.identity.seriesIdentifier.toStdString();
        EXPECT_FALSE(MeetingPolicy::occursBefore(second, first)) << first.identity.seriesIdentifier.toStdString();
        EXPECT_FALSE(MeetingPolicy::occursBefore(first, first));
    }
}

} // namespace
} // namespace orvane
