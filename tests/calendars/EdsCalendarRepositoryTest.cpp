// SPDX-License-Identifier: GPL-3.0-or-later
// The desktop calendar repository against a real Evolution Data Server, started for this program on a private
// session bus with an empty home. The calendars and events are written through libecal, as Evolution writes them.

#include "calendars/linux/EdsCalendarRepository.h"

#include "calendars/CalendarRepositoryError.h"
#include "support/EdsTestData.h"
#include "support/EdsTestEnvironment.h"

#include <QDateTime>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTimeZone>
#include <QTimer>
#include <QUuid>

#include <gtest/gtest.h>

// Qt values in failure messages; after gtest, whose printing templates these overloads join.
#include "support/QtPrinters.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <map>
#include <thread>

using namespace Qt::StringLiterals;
using namespace orvane;
using namespace std::chrono_literals;

namespace {

const auto* const edsEnvironment = ::testing::AddGlobalTestEnvironment(new EdsTestEnvironment);

// ---- Running the repository's coroutines from a test -------------------------------------------------------------

/// How long any one call may take before the test gives up on it: a hang guard, not a speed requirement.
constexpr auto patience = 60s;

template <class T>
QCoro::Task<void> settle(QCoro::Task<T> task, std::optional<T>& value, std::exception_ptr& error, bool& done,
                         QEventLoop& loop)
{
    try {
        value = co_await std::move(task);
    } catch (...) {
        error = std::current_exception();
    }
    done = true;
    loop.quit();
}

/// Runs `task` to its end in a nested event loop and returns its value or rethrows its exception.
template <class T>
T run(QCoro::Task<T> task)
{
    QEventLoop loop;
    bool done = false;
    std::optional<T> value;
    std::exception_ptr error;
    auto runner = settle(std::move(task), value, error, done, loop);
    if (!done) {
        QTimer::singleShot(patience, &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (!done) {
        throw std::runtime_error("the calendar repository did not answer");
    }
    if (error) {
        std::rethrow_exception(error);
    }
    return std::move(*value);
}

/// The error `task` fails with; a test failure when it succeeds.
template <class T>
std::optional<CalendarRepositoryError::Case> failure(QCoro::Task<T> task)
{
    try {
        run(std::move(task));
    } catch (const CalendarRepositoryError& error) {
        return error.value();
    }
    ADD_FAILURE() << "expected a CalendarRepositoryError";
    return std::nullopt;
}

/// Lets `milliseconds` of events run, so that late notifications have their chance to arrive.
void letEventsRun(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// ---- Values --------------------------------------------------------------------------------------------------------

Date utc(int year, int month, int day, int hour = 0, int minute = 0)
{
    return Date::fromDateTime(QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone::utc()));
}

QString iso(Date date)
{
    return date.toDateTime().toString(Qt::ISODate);
}

QString optional(const std::optional<QString>& text)
{
    return text ? u'"' + *text + u'"' : u"none"_s;
}

/// Every field of an occurrence, one per line: comparing two of these compares the occurrences and shows the
/// difference readably.
std::string describe(const MeetingOccurrence& occurrence)
{
    const auto& identity = occurrence.identity;
    const auto& calendar = occurrence.calendar;
    QString fingerprint = u"none"_s;
    if (identity.calendarFingerprint) {
        fingerprint = rawValue(identity.calendarFingerprint->sourceKind) + u" / "_s +
                      identity.calendarFingerprint->sourceTitle + u" / "_s +
                      identity.calendarFingerprint->calendarTitle;
    }
    const QStringList lines = {
        u"title: "_s + occurrence.title,
        u"start: "_s + iso(occurrence.startDate) + u", end: "_s + iso(occurrence.endDate),
        u"occurrence start: "_s + iso(identity.occurrenceStart) + u", scheduled: "_s + iso(identity.scheduledStart),
        u"series: "_s + identity.seriesIdentifier,
        u"source: "_s + identity.sourceIdentifier + u", calendar: "_s + identity.calendarIdentifier,
        u"fingerprint: "_s + fingerprint + (identity.calendarFingerprintIsUnique ? u" (unique)"_s : u""_s),
        u"all day: "_s + (occurrence.isAllDay ? u"yes"_s : u"no"_s) + u", cancelled: "_s +
            (occurrence.isCanceled ? u"yes"_s : u"no"_s) + u", recurring: "_s +
            (occurrence.isRecurring ? u"yes"_s : u"no"_s),
        u"participation: "_s + rawValue(occurrence.participationStatus) + u", attendees: "_s +
            (occurrence.hasAttendees ? u"yes"_s : u"no"_s),
        u"location: "_s + optional(occurrence.location),
        u"link: "_s + (occurrence.meetingURL ? occurrence.meetingURL->toString() : u"none"_s),
        u"in calendar: "_s + calendar.identifier + u" \""_s + calendar.title + u"\" of "_s + calendar.sourceIdentifier +
            u" \""_s + calendar.sourceTitle + u"\", "_s + rawValue(calendar.sourceKind) + u", colour "_s +
            optional(calendar.colorHex) + (calendar.isSubscribed ? u", subscribed"_s : u""_s) +
            (calendar.allowsContentModifications ? u", writable"_s : u", read-only"_s),
    };
    return lines.join(u'\n').toStdString();
}

std::vector<std::string> describeAll(const std::vector<MeetingOccurrence>& occurrences)
{
    std::vector<std::string> descriptions;
    for (const auto& occurrence : occurrences) {
        descriptions.push_back(describe(occurrence));
    }
    return descriptions;
}

/// The occurrences of one series (by its UID), in order.
std::vector<MeetingOccurrence> ofSeries(const std::vector<MeetingOccurrence>& occurrences, const QString& uid)
{
    std::vector<MeetingOccurrence> found;
    for (const auto& occurrence : occurrences) {
        if (occurrence.identity.seriesIdentifier == u"external:"_s + uid) {
            found.push_back(occurrence);
        }
    }
    return found;
}

// ---- The calendars -------------------------------------------------------------------------------------------------

// The week under test, Monday to Monday. The user lives in Berlin (UTC+1 until 03-31); New York switches to daylight
// saving time on Sunday 03-10.
const FetchInterval week = {utc(2030, 3, 4), utc(2030, 3, 11)};

constexpr const char* workUid = "orvane-test-work";
constexpr const char* teamAUid = "orvane-test-team-a";
constexpr const char* teamBUid = "orvane-test-team-b";
constexpr const char* holidaysUid = "orvane-test-holidays";
/// The user's address as their mail account spells it; invitations spell it in other ways.
constexpr const char* userAddress = "Ada.Lovelace@Example.org";

const CalendarDescriptor workCalendar = {.identifier = u"orvane-test-work"_s,
                                         .title = u"Work"_s,
                                         .sourceIdentifier = u"local-stub"_s,
                                         .sourceTitle = u"On This Computer"_s,
                                         .sourceKind = CalendarSourceKind::local,
                                         .colorHex = u"#1A2B3C"_s,
                                         .isSubscribed = false,
                                         .allowsContentModifications = true};

/// A single event of the Work calendar as the repository must report it; tests change what differs.
MeetingOccurrence workEvent(const char* uid, const char* title, Date start, Date end)
{
    return {.identity = {.sourceIdentifier = u"local-stub"_s,
                         .calendarIdentifier = workCalendar.identifier,
                         .seriesIdentifier = u"external:"_s + QString::fromUtf8(uid),
                         .calendarFingerprint =
                             CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Work"_s},
                         .calendarFingerprintIsUnique = true,
                         .occurrenceStart = start,
                         .scheduledStart = start},
            .title = QString::fromUtf8(title),
            .startDate = start,
            .endDate = end,
            .isAllDay = false,
            .isCanceled = false,
            .participationStatus = MeetingParticipationStatus::unknown,
            .hasAttendees = false,
            .location = std::nullopt,
            .isRecurring = false,
            .calendar = workCalendar,
            .meetingURL = std::nullopt};
}

std::string vevent(const std::string& properties)
{
    return "BEGIN:VEVENT\n" + properties + "END:VEVENT\n";
}

class EdsCalendarRepositoryTest : public ::testing::Test {
public:
    static void SetUpTestSuite()
    {
        // All-day events and floating times belong to the user's zone.
        setenv("TZ", "Europe/Berlin", 1);
        tzset();

        s_registry = eds_test::connectRegistry().release();
        s_identity = eds_test::addMailIdentity(s_registry, "orvane-test-identity", userAddress).release();
        s_sources.push_back(eds_test::addCalendar(s_registry, workUid, "Work", "#1a2b3c").release());
        // Two calendars of one account with one title: their fingerprints cannot tell them apart.
        s_sources.push_back(eds_test::addCalendar(s_registry, teamAUid, "Team", "#abc").release());
        s_sources.push_back(eds_test::addCalendar(s_registry, teamBUid, "Team", "#0000ffff8080").release());
        s_sources.push_back(
            eds_test::addCalendar(s_registry, holidaysUid, "Holidays", "#4E9A06", "webcal-stub", "webcal").release());

        const auto work = eds_test::connectCalendar(s_registry, workUid);
        writeWorkCalendar(work.get());
        eds_test::createEvent(eds_test::connectCalendar(s_registry, teamAUid).get(),
                              vevent("UID:lunch-a@orvane.test\nSUMMARY:Team lunch\n"
                                     "DTSTART:20300307T110000Z\nDTEND:20300307T120000Z\n"));
        eds_test::createEvent(eds_test::connectCalendar(s_registry, teamBUid).get(),
                              vevent("UID:lunch-b@orvane.test\nSUMMARY:Team lunch\n"
                                     "DTSTART:20300307T113000Z\nDTEND:20300307T123000Z\n"));
    }

    static void TearDownTestSuite()
    {
        for (ESource* source : s_sources) {
            g_object_unref(source);
        }
        s_sources.clear();
        g_clear_object(&s_identity);
        g_clear_object(&s_registry);
    }

protected:
    static void writeWorkCalendar(ECalClient* work)
    {
        // A zone that only this calendar defines, as Exchange invitations bring them.
        const auto zone = eds_test::component("BEGIN:VTIMEZONE\nTZID:India Standard Time\nBEGIN:STANDARD\n"
                                              "DTSTART:16010101T000000\nTZOFFSETFROM:+0530\nTZOFFSETTO:+0530\n"
                                              "END:STANDARD\nEND:VTIMEZONE\n");
        eds_test::Ref<ICalTimezone> india(i_cal_timezone_new());
        i_cal_timezone_set_component(india.get(), zone.get());
        GError* error = nullptr;
        eds_test::check(e_cal_client_add_timezone_sync(work, india.get(), nullptr, &error), error, "adding a zone");

        // Weekdays at 09:00 in Berlin; Wednesday excluded, Tuesday moved to the afternoon, Thursday moved two weeks on.
        eds_test::createEvent(work, vevent("UID:standup@orvane.test\nSUMMARY:Standup\nLOCATION:Room 4.01\n"
                                           "DTSTART;TZID=Europe/Berlin:20300304T090000\n"
                                           "DTEND;TZID=Europe/Berlin:20300304T091500\n"
                                           "RRULE:FREQ=DAILY;COUNT=5\n"
                                           "EXDATE;TZID=Europe/Berlin:20300306T090000\n"));
        eds_test::modifyOccurrence(work, vevent("UID:standup@orvane.test\nSUMMARY:Standup (afternoon)\n"
                                                "LOCATION:Room 4.01\n"
                                                "RECURRENCE-ID;TZID=Europe/Berlin:20300305T090000\n"
                                                "DTSTART;TZID=Europe/Berlin:20300305T140000\n"
                                                "DTEND;TZID=Europe/Berlin:20300305T141500\n"));
        eds_test::modifyOccurrence(work, vevent("UID:standup@orvane.test\nSUMMARY:Standup\nLOCATION:Room 4.01\n"
                                                "RECURRENCE-ID;TZID=Europe/Berlin:20300307T090000\n"
                                                "DTSTART;TZID=Europe/Berlin:20300321T090000\n"
                                                "DTEND;TZID=Europe/Berlin:20300321T091500\n"));
        // 09:00 in New York on three days, across the switch to daylight saving time.
        eds_test::createEvent(work, vevent("UID:client-call@orvane.test\nSUMMARY:Client call\n"
                                           "DTSTART;TZID=America/New_York:20300308T090000\n"
                                           "DTEND;TZID=America/New_York:20300308T100000\n"
                                           "RRULE:FREQ=DAILY;COUNT=3\n"));
        eds_test::createEvent(work, vevent("UID:pune@orvane.test\nSUMMARY:Sync with Pune\n"
                                           "DTSTART;TZID=India Standard Time:20300305T150000\n"
                                           "DTEND;TZID=India Standard Time:20300305T160000\n"));
        eds_test::createEvent(work, vevent("UID:offsite@orvane.test\nSUMMARY:Offsite\n"
                                           "DTSTART;VALUE=DATE:20300306\nDTEND;VALUE=DATE:20300307\n"));
        eds_test::createEvent(work, vevent("UID:budget@orvane.test\nSUMMARY:Budget review\nSTATUS:CANCELLED\n"
                                           "DTSTART:20300305T160000Z\nDTEND:20300305T170000Z\n"));
        eds_test::createEvent(work, vevent("UID:pitch@orvane.test\nSUMMARY:Vendor pitch\n"
                                           "ORGANIZER:mailto:bob@example.org\n"
                                           "ATTENDEE;PARTSTAT=ACCEPTED:mailto:bob@example.org\n"
                                           "ATTENDEE;PARTSTAT=DECLINED:MAILTO:ada.lovelace@example.org\n"
                                           "DTSTART:20300306T100000Z\nDTEND:20300306T110000Z\n"));
        eds_test::createEvent(work, vevent("UID:architecture@orvane.test\nSUMMARY:Architecture sync\n"
                                           "ORGANIZER:mailto:bob@example.org\n"
                                           "ATTENDEE;PARTSTAT=ACCEPTED:mailto:bob@example.org\n"
                                           "ATTENDEE;PARTSTAT=TENTATIVE:mailto:carol@example.org\n"
                                           "DTSTART:20300306T130000Z\nDTEND:20300306T140000Z\n"));
        eds_test::createEvent(work, vevent("UID:one-on-one@orvane.test\nSUMMARY:1:1 with Bob\n"
                                           "ATTENDEE;PARTSTAT=ACCEPTED:mailto:Ada.Lovelace@example.org\n"
                                           "ATTENDEE;PARTSTAT=NEEDS-ACTION:mailto:bob@example.org\n"
                                           "DTSTART:20300308T100000Z\nDTEND:20300308T103000Z\n"));
        eds_test::createEvent(work, vevent("UID:demo@orvane.test\nSUMMARY:Customer demo\n"
                                           "DESCRIPTION:Join Zoom Meeting\\nhttps://acme.zoom.us/j/81234567890?pwd=Zm9v"
                                           "\\n\\nMeeting ID: 812 3456 7890\n"
                                           "DTSTART:20300307T090000Z\nDTEND:20300307T100000Z\n"));
        eds_test::createEvent(work,
                              vevent("UID:planning@orvane.test\nSUMMARY:Quarterly planning\n"
                                     "LOCATION:Microsoft Teams Meeting\n"
                                     "URL:https://teams.microsoft.com/l/meetup-join/19%3ameeting_NjA%40thread.v2/0\n"
                                     "DTSTART:20300307T130000Z\nDTEND:20300307T140000Z\n"));
        eds_test::createEvent(work, vevent("UID:untitled@orvane.test\n"
                                           "DTSTART:20300308T150000Z\nDTEND:20300308T153000Z\n"));
        eds_test::createEvent(work, vevent("UID:next-week@orvane.test\nSUMMARY:Next week\n"
                                           "DTSTART:20300312T100000Z\nDTEND:20300312T110000Z\n"));
    }

    static EdsTestSession& session() { return EdsTestEnvironment::session(); }

    /// Kills the session's processes running `executable` and waits until they are gone. An idle service may have
    /// quit by itself already; `mustBeRunning` says whether that fails the test.
    static void kill(const char* executable, bool mustBeRunning = true)
    {
        const auto victims = session().processes(executable);
        if (mustBeRunning) {
            ASSERT_FALSE(victims.empty()) << executable << " is not running";
        }
        for (const pid_t pid : victims) {
            ::kill(pid, SIGKILL);
        }
        ASSERT_TRUE(eventually([executable] { return session().processes(executable).empty(); }))
            << executable << " survived SIGKILL";
    }

    /// Lets events run until `condition` holds; false when it never did.
    template <class Condition>
    static bool eventually(Condition condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            letEventsRun(20);
        }
        return true;
    }

    bool lists(const QByteArray& calendarUid)
    {
        const auto groups = run(repository.calendarGroups());
        return std::any_of(groups.begin(), groups.end(), [&](const CalendarGroup& group) {
            return std::any_of(group.calendars.begin(), group.calendars.end(), [&](const CalendarDescriptor& calendar) {
                return calendar.identifier == QString::fromUtf8(calendarUid);
            });
        });
    }

    /// The occurrences of `calendars`, each of which must be readable.
    std::vector<MeetingOccurrence> fetch(const QSet<QString>& calendars, FetchInterval interval = week)
    {
        auto result = run(repository.occurrences(interval, calendars));
        EXPECT_EQ(result.failedCalendars.size(), 0u);
        return std::move(result.occurrences);
    }

    std::vector<MeetingOccurrence> fetchWork() { return fetch({QString::fromUtf8(workUid)}); }

    inline static ESourceRegistry* s_registry = nullptr;
    inline static ESource* s_identity = nullptr;
    inline static std::vector<ESource*> s_sources;

    EdsCalendarRepository repository;
};

// ---- Mapping -------------------------------------------------------------------------------------------------------

TEST_F(EdsCalendarRepositoryTest, DailySeriesWithAMovedAndAnExcludedOccurrence)
{
    const auto standups = ofSeries(fetchWork(), u"standup@orvane.test"_s);

    auto monday = workEvent("standup@orvane.test", "Standup", utc(2030, 3, 4, 8), utc(2030, 3, 4, 8, 15));
    monday.isRecurring = true;
    monday.location = u"Room 4.01"_s;
    // Tuesday's moved to 14:00: keyed by the 09:00 slot it replaces.
    auto tuesday = monday;
    tuesday.title = u"Standup (afternoon)"_s;
    tuesday.startDate = utc(2030, 3, 5, 13);
    tuesday.endDate = utc(2030, 3, 5, 13, 15);
    tuesday.identity.occurrenceStart = utc(2030, 3, 5, 8);
    tuesday.identity.scheduledStart = utc(2030, 3, 5, 13);
    // Wednesday is excluded; Thursday's moved to the 21st, out of this week, and leaves no trace in it.
    auto friday = monday;
    friday.startDate = friday.identity.occurrenceStart = friday.identity.scheduledStart = utc(2030, 3, 8, 8);
    friday.endDate = utc(2030, 3, 8, 8, 15);
    EXPECT_EQ(describeAll(standups), describeAll({monday, tuesday, friday}));

    // The week of the 18th holds only Thursday's moved occurrence.
    const auto later =
        ofSeries(fetch({QString::fromUtf8(workUid)}, {utc(2030, 3, 18), utc(2030, 3, 25)}), u"standup@orvane.test"_s);
    ASSERT_EQ(later.size(), 1u);
    EXPECT_EQ(later[0].startDate, utc(2030, 3, 21, 8));
    EXPECT_EQ(later[0].identity.occurrenceStart, utc(2030, 3, 7, 8));
}

TEST_F(EdsCalendarRepositoryTest, EventsInOtherZonesKeepTheirLocalTime)
{
    const auto occurrences = fetchWork();

    // 09:00 in New York: 14:00 UTC in standard time, 13:00 UTC from Sunday 03-10 on.
    const auto calls = ofSeries(occurrences, u"client-call@orvane.test"_s);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].startDate, utc(2030, 3, 8, 14));
    EXPECT_EQ(calls[1].startDate, utc(2030, 3, 9, 14));
    EXPECT_EQ(calls[2].startDate, utc(2030, 3, 10, 13));
    EXPECT_EQ(calls[2].endDate, utc(2030, 3, 10, 14));
    EXPECT_TRUE(calls[2].isRecurring);

    // A zone that only the calendar defines (it is not in the system's zone database).
    const auto pune = ofSeries(occurrences, u"pune@orvane.test"_s);
    ASSERT_EQ(pune.size(), 1u);
    EXPECT_EQ(describe(pune[0]), describe(workEvent("pune@orvane.test", "Sync with Pune", utc(2030, 3, 5, 9, 30),
                                                    utc(2030, 3, 5, 10, 30))));
}

TEST_F(EdsCalendarRepositoryTest, AllDayEventCoversTheUsersDay)
{
    const auto offsite = ofSeries(fetchWork(), u"offsite@orvane.test"_s);
    ASSERT_EQ(offsite.size(), 1u);
    // Midnight to midnight in Berlin.
    auto expected = workEvent("offsite@orvane.test", "Offsite", utc(2030, 3, 5, 23), utc(2030, 3, 6, 23));
    expected.isAllDay = true;
    EXPECT_EQ(describe(offsite[0]), describe(expected));
}

TEST_F(EdsCalendarRepositoryTest, CancelledDeclinedAndOthersMeetings)
{
    const auto occurrences = fetchWork();

    auto cancelled = workEvent("budget@orvane.test", "Budget review", utc(2030, 3, 5, 16), utc(2030, 3, 5, 17));
    cancelled.isCanceled = true;
    auto declined = workEvent("pitch@orvane.test", "Vendor pitch", utc(2030, 3, 6, 10), utc(2030, 3, 6, 11));
    declined.participationStatus = MeetingParticipationStatus::declined;
    declined.hasAttendees = true;
    auto others = workEvent("architecture@orvane.test", "Architecture sync", utc(2030, 3, 6, 13), utc(2030, 3, 6, 14));
    others.hasAttendees = true;
    auto accepted = workEvent("one-on-one@orvane.test", "1:1 with Bob", utc(2030, 3, 8, 10), utc(2030, 3, 8, 10, 30));
    accepted.participationStatus = MeetingParticipationStatus::accepted;
    accepted.hasAttendees = true;

    for (const auto& expected : {cancelled, declined, others, accepted}) {
        const auto found = ofSeries(occurrences, expected.identity.seriesIdentifier.sliced(9));
        ASSERT_EQ(found.size(), 1u) << expected.title.toStdString();
        EXPECT_EQ(describe(found[0]), describe(expected));
    }
}

TEST_F(EdsCalendarRepositoryTest, JoinLinksAndUntitledEvents)
{
    const auto occurrences = fetchWork();

    auto demo = workEvent("demo@orvane.test", "Customer demo", utc(2030, 3, 7, 9), utc(2030, 3, 7, 10));
    demo.meetingURL = QUrl(u"https://acme.zoom.us/j/81234567890?pwd=Zm9v"_s);
    auto planning = workEvent("planning@orvane.test", "Quarterly planning", utc(2030, 3, 7, 13), utc(2030, 3, 7, 14));
    planning.location = u"Microsoft Teams Meeting"_s;
    planning.meetingURL = QUrl(u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_NjA%40thread.v2/0"_s);
    const auto untitled =
        workEvent("untitled@orvane.test", "Untitled event", utc(2030, 3, 8, 15), utc(2030, 3, 8, 15, 30));

    for (const auto& expected : {demo, planning, untitled}) {
        const auto found = ofSeries(occurrences, expected.identity.seriesIdentifier.sliced(9));
        ASSERT_EQ(found.size(), 1u) << expected.title.toStdString();
        EXPECT_EQ(describe(found[0]), describe(expected));
    }
}

TEST_F(EdsCalendarRepositoryTest, TheWholeWeekInOrder)
{
    QStringList starts;
    for (const auto& occurrence : fetchWork()) {
        starts.append(iso(occurrence.startDate) + u' ' + occurrence.title);
    }
    EXPECT_EQ(starts, (QStringList{
                          u"2030-03-04T08:00:00Z Standup"_s,
                          u"2030-03-05T09:30:00Z Sync with Pune"_s,
                          u"2030-03-05T13:00:00Z Standup (afternoon)"_s,
                          u"2030-03-05T16:00:00Z Budget review"_s,
                          u"2030-03-05T23:00:00Z Offsite"_s,
                          u"2030-03-06T10:00:00Z Vendor pitch"_s,
                          u"2030-03-06T13:00:00Z Architecture sync"_s,
                          u"2030-03-07T09:00:00Z Customer demo"_s,
                          u"2030-03-07T13:00:00Z Quarterly planning"_s,
                          u"2030-03-08T08:00:00Z Standup"_s,
                          u"2030-03-08T10:00:00Z 1:1 with Bob"_s,
                          u"2030-03-08T14:00:00Z Client call"_s,
                          u"2030-03-08T15:00:00Z Untitled event"_s,
                          u"2030-03-09T14:00:00Z Client call"_s,
                          u"2030-03-10T13:00:00Z Client call"_s,
                      }));
}

TEST_F(EdsCalendarRepositoryTest, CalendarsOfOneAccountWithOneTitleHaveNoUniqueFingerprint)
{
    const auto occurrences =
        fetch({QString::fromUtf8(workUid), QString::fromUtf8(teamAUid), QString::fromUtf8(teamBUid)});
    int lunches = 0;
    for (const auto& occurrence : occurrences) {
        const bool isTeam = occurrence.calendar.title == u"Team"_s;
        EXPECT_EQ(occurrence.identity.calendarFingerprintIsUnique, !isTeam) << occurrence.title.toStdString();
        if (isTeam) {
            ++lunches;
            EXPECT_EQ(occurrence.identity.calendarFingerprint,
                      (CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Team"_s}));
        }
    }
    EXPECT_EQ(lunches, 2);
}

// ---- Calendars -----------------------------------------------------------------------------------------------------

TEST_F(EdsCalendarRepositoryTest, CalendarsAreGroupedByAccount)
{
    EXPECT_EQ(repository.authorizationState(), CalendarAuthorizationState::notDetermined);
    EXPECT_EQ(run(repository.requestFullAccess()), CalendarAuthorizationState::fullAccess);
    EXPECT_EQ(repository.authorizationState(), CalendarAuthorizationState::fullAccess);

    const auto groups = run(repository.calendarGroups());
    std::map<QString, CalendarGroup> byAccount;
    QStringList order;
    for (const auto& group : groups) {
        byAccount[group.sourceIdentifier] = group;
        order.append(group.sourceTitle);
    }
    // The service's own "Birthdays & Anniversaries" (from the address books) and "Personal" are there too.
    EXPECT_EQ(order, (QStringList{u"Contacts"_s, u"On The Web"_s, u"On This Computer"_s}));

    const auto& local = byAccount[u"local-stub"_s];
    EXPECT_EQ(local.sourceTitle, u"On This Computer"_s);
    EXPECT_EQ(local.sourceKind, CalendarSourceKind::local);
    QStringList titles;
    for (const auto& calendar : local.calendars) {
        titles.append(calendar.title);
    }
    EXPECT_EQ(titles, (QStringList{u"Personal"_s, u"Team"_s, u"Team"_s, u"Work"_s}));
    std::map<QString, CalendarDescriptor> byIdentifier;
    for (const auto& calendar : local.calendars) {
        byIdentifier[calendar.identifier] = calendar;
    }
    EXPECT_EQ(byIdentifier[u"orvane-test-work"_s], workCalendar);
    // "#rgb" and "#rrrrggggbbbb" become "#RRGGBB".
    EXPECT_EQ(byIdentifier[u"orvane-test-team-a"_s].colorHex, u"#AABBCC"_s);
    EXPECT_EQ(byIdentifier[u"orvane-test-team-b"_s].colorHex, u"#00FF80"_s);

    const auto& web = byAccount[u"webcal-stub"_s];
    ASSERT_EQ(web.calendars.size(), 1u);
    EXPECT_EQ(web.calendars[0], (CalendarDescriptor{.identifier = u"orvane-test-holidays"_s,
                                                    .title = u"Holidays"_s,
                                                    .sourceIdentifier = u"webcal-stub"_s,
                                                    .sourceTitle = u"On The Web"_s,
                                                    .sourceKind = CalendarSourceKind::subscribed,
                                                    .colorHex = u"#4E9A06"_s,
                                                    .isSubscribed = true,
                                                    .allowsContentModifications = false}));
    EXPECT_EQ(web.sourceKind, CalendarSourceKind::subscribed);

    const auto& contacts = byAccount[u"contacts-stub"_s];
    ASSERT_EQ(contacts.calendars.size(), 1u);
    EXPECT_EQ(contacts.calendars[0].sourceKind, CalendarSourceKind::birthdays);
    EXPECT_FALSE(contacts.calendars[0].allowsContentModifications);
}

// ---- Limits --------------------------------------------------------------------------------------------------------

TEST_F(EdsCalendarRepositoryTest, IntervalLimits)
{
    const QSet<QString> work = {QString::fromUtf8(workUid)};
    const Date start = week.start;

    EXPECT_EQ(fetch(work, {start, start + CalendarRepositoryError::maximumInterval}).size(), fetchWork().size() + 2)
        << "31 days are accepted, and hold next week's event and the standup moved to the 21st";
    EXPECT_EQ(failure(repository.occurrences({start, start + 2'678'401}, work)),
              CalendarRepositoryError::Case(CalendarRepositoryError::IntervalTooLarge{2'678'400}));
    EXPECT_EQ(failure(repository.occurrences({start, start}, work)),
              CalendarRepositoryError::Case(CalendarRepositoryError::InvalidInterval{}));
    EXPECT_EQ(failure(repository.occurrences({start, start - 1}, work)),
              CalendarRepositoryError::Case(CalendarRepositoryError::InvalidInterval{}));
    // The checks come before the selection: an empty selection does not excuse a bad interval.
    EXPECT_EQ(failure(repository.occurrences({start, start}, {})),
              CalendarRepositoryError::Case(CalendarRepositoryError::InvalidInterval{}));
    EXPECT_TRUE(fetch({u"no-such-calendar"_s}).empty());
}

TEST_F(EdsCalendarRepositoryTest, EmptySelectionDoesNotContactTheService)
{
    // With the services gone, any question to them would start them again by D-Bus activation.
    kill("evolution-calendar-factory", false);
    kill("evolution-source-registry", false);

    EdsCalendarRepository fresh;
    EXPECT_EQ(run(fresh.occurrences(week, {})), OccurrenceFetchResult{});

    letEventsRun(200);
    EXPECT_TRUE(session().processes("evolution-source-registry").empty());
    EXPECT_TRUE(session().processes("evolution-calendar-factory").empty());
    EXPECT_EQ(fresh.authorizationState(), CalendarAuthorizationState::notDetermined);
}

// ---- Changes -------------------------------------------------------------------------------------------------------

TEST_F(EdsCalendarRepositoryTest, ChangesAreReportedOncePerBurst)
{
    QSignalSpy changed(&repository, &CalendarRepository::changed);
    fetchWork();

    // A new calendar is a change.
    const QByteArray scratchUid = "orvane-test-scratch-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    const auto scratch = eds_test::addCalendar(s_registry, scratchUid.constData(), "Scratch");
    ASSERT_TRUE(changed.wait(int(std::chrono::milliseconds(patience).count())));
    EXPECT_TRUE(eventually([&] { return lists(scratchUid); }));

    // Reading changes nothing, and is not reported as a change.
    const QSet<QString> selection = {QString::fromUtf8(workUid), QString::fromUtf8(scratchUid)};
    fetch(selection);
    letEventsRun(3 * EdsCalendarRepository::changeCoalescingMilliseconds);
    changed.clear();
    fetch(selection);
    letEventsRun(3 * EdsCalendarRepository::changeCoalescingMilliseconds);
    EXPECT_EQ(changed.count(), 0) << "a fetch was reported as a change";

    // Another program adds three events, reschedules one and deletes another: one change.
    const auto client = eds_test::connectCalendar(s_registry, scratchUid.constData());
    GSList* events = nullptr;
    for (const char* event : {"UID:a@orvane.test\nSUMMARY:A\nDTSTART:20300305T100000Z\nDTEND:20300305T110000Z\n",
                              "UID:b@orvane.test\nSUMMARY:B\nDTSTART:20300305T120000Z\nDTEND:20300305T130000Z\n",
                              "UID:c@orvane.test\nSUMMARY:C\nDTSTART:20300305T140000Z\nDTEND:20300305T150000Z\n"}) {
        events = g_slist_append(events, eds_test::component(vevent(event)).release());
    }
    GError* error = nullptr;
    GSList* uids = nullptr;
    const bool created =
        e_cal_client_create_objects_sync(client.get(), events, E_CAL_OPERATION_FLAG_NONE, &uids, nullptr, &error);
    g_slist_free_full(events, g_object_unref);
    g_slist_free_full(uids, g_free);
    eds_test::check(created, error, "creating three events");
    eds_test::check(e_cal_client_modify_object_sync(
                        client.get(),
                        eds_test::component(vevent("UID:b@orvane.test\nSUMMARY:B, later\n"
                                                   "DTSTART:20300305T170000Z\nDTEND:20300305T180000Z\n"))
                            .get(),
                        E_CAL_OBJ_MOD_ALL, E_CAL_OPERATION_FLAG_NONE, nullptr, &error),
                    error, "changing an event");
    eds_test::check(e_cal_client_remove_object_sync(client.get(), "c@orvane.test", nullptr, E_CAL_OBJ_MOD_ALL,
                                                    E_CAL_OPERATION_FLAG_NONE, nullptr, &error),
                    error, "removing an event");

    ASSERT_TRUE(changed.wait(int(std::chrono::milliseconds(patience).count())));
    letEventsRun(3 * EdsCalendarRepository::changeCoalescingMilliseconds);
    EXPECT_EQ(changed.count(), 1);

    QStringList titles;
    for (const auto& occurrence : fetch({QString::fromUtf8(scratchUid)})) {
        titles.append(iso(occurrence.startDate) + u' ' + occurrence.title);
    }
    EXPECT_EQ(titles, (QStringList{u"2030-03-05T10:00:00Z A"_s, u"2030-03-05T17:00:00Z B, later"_s}));
}

// ---- Failures of the service ---------------------------------------------------------------------------------------

TEST_F(EdsCalendarRepositoryTest, RecoversWhenTheCalendarFactoryIsKilled)
{
    const auto before = describeAll(fetchWork());
    ASSERT_FALSE(before.empty());
    QSignalSpy changed(&repository, &CalendarRepository::changed);
    // Whatever opening the calendar stirred up has passed.
    letEventsRun(3 * EdsCalendarRepository::changeCoalescingMilliseconds);
    changed.clear();

    // Killed while idle: the repository hears of the loss (and tells its owner, who refreshes), and the next fetch
    // is served by a new factory, through the same repository.
    kill("evolution-calendar-factory");
    ASSERT_TRUE(changed.wait(int(std::chrono::milliseconds(patience).count())));
    EXPECT_EQ(describeAll(fetchWork()), before);

    // Killed just before a fetch: that fetch may still reach for the dead factory (and fail) or already know it is
    // gone (and start a new one); either way it never answers with anything but the truth, and the next one works.
    kill("evolution-calendar-factory");
    try {
        EXPECT_EQ(describeAll(fetchWork()), before);
    } catch (const CalendarRepositoryError& error) {
        EXPECT_TRUE(std::holds_alternative<CalendarRepositoryError::ServiceFailed>(error.value())) << error.what();
    }
    EXPECT_EQ(describeAll(fetchWork()), before);
    EXPECT_FALSE(session().processes("evolution-calendar-factory").empty());
}

TEST_F(EdsCalendarRepositoryTest, RecoversWhenTheSourceRegistryIsKilled)
{
    const auto before = describeAll(fetchWork());
    ASSERT_FALSE(before.empty());
    QSignalSpy changed(&repository, &CalendarRepository::changed);

    kill("evolution-source-registry");
    try {
        EXPECT_EQ(describeAll(fetchWork()), before);
    } catch (const CalendarRepositoryError& error) {
        ADD_FAILURE() << "the calendars were still there: " << error.what();
    }
    EXPECT_EQ(describeAll(fetchWork()), before);

    // Once the registry is back (another program needs it), new calendars show up again.
    const QByteArray uid = "orvane-test-after-registry-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    const auto added = eds_test::addCalendar(s_registry, uid.constData(), "After the restart");
    eds_test::createEvent(eds_test::connectCalendar(s_registry, uid.constData()).get(),
                          vevent("UID:restart@orvane.test\nSUMMARY:After the restart\n"
                                 "DTSTART:20300306T080000Z\nDTEND:20300306T090000Z\n"));
    ASSERT_TRUE(eventually([&] { return lists(uid); }));
    EXPECT_TRUE(eventually([&] { return changed.count() > 0; }));
    const auto occurrences = fetch({QString::fromUtf8(uid)});
    ASSERT_EQ(occurrences.size(), 1u);
    EXPECT_EQ(occurrences[0].title, u"After the restart"_s);
    EXPECT_EQ(describeAll(fetchWork()), before);
}

TEST_F(EdsCalendarRepositoryTest, ACalendarThatCannotBeOpenedDoesNotHideTheOthers)
{
    // Left behind by a calendar program that is gone: the registry lists it, but no backend can open it.
    const char* orphanUid = "orvane-test-orphan";
    const auto orphan = eds_test::addCalendar(s_registry, orphanUid, "Old account", nullptr, "local-stub", "gone");
    ASSERT_TRUE(eventually([&] { return lists(orphanUid); }));

    const auto result = run(repository.occurrences(week, {QString::fromUtf8(teamAUid), QString::fromUtf8(orphanUid)}));
    ASSERT_EQ(result.occurrences.size(), 1u);
    EXPECT_EQ(result.occurrences[0].title, u"Team lunch"_s);
    ASSERT_EQ(result.failedCalendars.size(), 1u);
    EXPECT_EQ(result.failedCalendars[0].identifier, QString::fromUtf8(orphanUid));
    EXPECT_EQ(result.failedCalendars[0].title, u"Old account"_s);
    EXPECT_TRUE(result.failedCalendars[0].message.startsWith(u"The desktop calendar service failed: "_s))
        << result.failedCalendars[0].message.toStdString();

    // With no calendar to read at all, it is the service that fails.
    EXPECT_TRUE(failure(repository.occurrences(week, {QString::fromUtf8(orphanUid)})).has_value());
}

} // namespace
