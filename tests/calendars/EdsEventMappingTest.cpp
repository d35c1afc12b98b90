// SPDX-License-Identifier: GPL-3.0-or-later
// Turning iCalendar events, as Evolution Data Server hands them over, into meeting occurrences: real exports from
// Google, Exchange (through Evolution), Thunderbird, Zimbra, Nextcloud and Podio, and small events written here.

#include "calendars/linux/EdsEventMapping.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Qt values in failure messages; after gtest, whose printing templates these overloads join.
#include "support/QtPrinters.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>

using namespace Qt::StringLiterals;
using namespace orvane;
using ::testing::ElementsAre;

namespace orvane {

// Failures name the status instead of printing its bytes.
inline void PrintTo(MeetingParticipationStatus status, std::ostream* out)
{
    *out << rawValue(status).toStdString();
}

} // namespace orvane

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GRef = std::unique_ptr<T, GObjectUnref>;

Date utc(int year, int month, int day, int hour = 0, int minute = 0)
{
    return Date::fromDateTime(QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone::utc()));
}

QString iso(Date date)
{
    return date.toDateTime().toString(Qt::ISODate);
}

/// One line per occurrence, "start–end" in UTC, with the slot it replaces when it was moved: readable on failure.
QString timing(const MeetingOccurrence& occurrence)
{
    QString line = iso(occurrence.startDate) + u" – "_s + iso(occurrence.endDate);
    if (occurrence.identity.occurrenceStart != occurrence.startDate) {
        line += u" (moved from "_s + iso(occurrence.identity.occurrenceStart) + u")"_s;
    }
    if (occurrence.isCanceled) {
        line += u" cancelled"_s;
    }
    return line;
}

QStringList timings(const std::vector<MeetingOccurrence>& occurrences)
{
    QStringList lines;
    for (const auto& occurrence : occurrences) {
        lines.append(timing(occurrence));
    }
    return lines;
}

/// The user's own zone in these tests: far from UTC, so that a time read in the wrong zone is hours off.
ICalTimezone* tokyo()
{
    return i_cal_timezone_get_builtin_timezone("Asia/Tokyo");
}

/// One iCalendar text: its events stand alone (as the calendar service returns them, without their VCALENDAR),
/// so a TZID is found only through the context's resolver, which looks in the text's VTIMEZONEs and then in the
/// system zone database.
class Calendar {
public:
    explicit Calendar(const QByteArray& text)
        : m_root(i_cal_component_new_from_string(text.constData()))
    {
        if (!m_root) {
            return;
        }
        if (i_cal_component_isa(m_root.get()) == I_CAL_VCALENDAR_COMPONENT) {
            collect(m_root.get());
        }
    }

    static std::unique_ptr<Calendar> fromFixture(const char* name)
    {
        QFile file(QString::fromUtf8(ORVANE_SHARED_FIXTURES_DIR "/ics/") + QString::fromUtf8(name));
        if (!file.open(QIODevice::ReadOnly)) {
            return nullptr;
        }
        return std::make_unique<Calendar>(file.readAll());
    }

    bool parsed() const { return m_root != nullptr; }
    ICalComponent* root() const { return m_root.get(); }
    std::vector<ICalComponent*> events() const
    {
        std::vector<ICalComponent*> events;
        for (const auto& event : m_events) {
            events.push_back(event.get());
        }
        return events;
    }

    eds::CalendarContext context(QStringList userAddresses = {}) const
    {
        return {
            .calendar = {.identifier = u"cal-fixture"_s,
                         .title = u"Fixture"_s,
                         .sourceIdentifier = u"local-stub"_s,
                         .sourceTitle = u"On This Computer"_s,
                         .sourceKind = CalendarSourceKind::local,
                         .colorHex = u"#3465A4"_s,
                         .isSubscribed = false,
                         .allowsContentModifications = true},
            .fingerprint = CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Fixture"_s},
            .fingerprintIsUnique = true,
            .userAddresses = std::move(userAddresses),
            .defaultZone = tokyo(),
            .resolveZone = [this](const char* tzid) { return zone(tzid); },
        };
    }

    std::vector<MeetingOccurrence> expand(FetchInterval interval, QStringList userAddresses = {}) const
    {
        auto occurrences = eds::expandEvents(events(), interval, context(std::move(userAddresses)));
        std::stable_sort(occurrences.begin(), occurrences.end(),
                         [](const auto& lhs, const auto& rhs) { return lhs.startDate < rhs.startDate; });
        return occurrences;
    }

private:
    void collect(ICalComponent* calendar)
    {
        m_calendars.push_back(calendar);
        for (GRef<ICalComponent> event(i_cal_component_get_first_component(calendar, I_CAL_VEVENT_COMPONENT)); event;
             event.reset(i_cal_component_get_next_component(calendar, I_CAL_VEVENT_COMPONENT))) {
            m_events.emplace_back(i_cal_component_clone(event.get()));
        }
    }

    ICalTimezone* zone(const char* tzid) const
    {
        if (tzid == nullptr) {
            return nullptr;
        }
        if (const auto cached = m_zones.find(tzid); cached != m_zones.end()) {
            return cached->second.get();
        }
        for (ICalComponent* calendar : m_calendars) {
            if (GRef<ICalTimezone> own{i_cal_component_get_timezone(calendar, tzid)}) {
                return m_zones.emplace(tzid, std::move(own)).first->second.get();
            }
        }
        return i_cal_timezone_get_builtin_timezone(tzid);
    }

    GRef<ICalComponent> m_root;
    std::vector<ICalComponent*> m_calendars;
    std::vector<GRef<ICalComponent>> m_events;
    mutable std::map<std::string, GRef<ICalTimezone>> m_zones;
};

#define LOAD_FIXTURE(variable, name)                                                                                   \
    const auto variable = Calendar::fromFixture(name);                                                                 \
    if (!variable) {                                                                                                   \
        GTEST_SKIP() << "The shared iCalendar fixtures are not here: " ORVANE_SHARED_FIXTURES_DIR "/ics/" name;        \
    }                                                                                                                  \
    ASSERT_TRUE(variable->parsed())

/// A calendar of the given VEVENT lines (CRLF added), as one VCALENDAR.
Calendar calendarOf(std::initializer_list<const char*> lines)
{
    QByteArray text = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Orvane//Tests//EN\r\n";
    for (const char* line : lines) {
        text += line;
        text += "\r\n";
    }
    text += "END:VCALENDAR\r\n";
    return Calendar(text);
}

/// One event from `properties` (between BEGIN:VEVENT and END:VEVENT), mapped over a day around it.
std::optional<MeetingOccurrence> single(const QByteArray& properties, const QStringList& userAddresses = {})
{
    const QByteArray text = "BEGIN:VCALENDAR\r\nVERSION:2.0\r\nBEGIN:VEVENT\r\nUID:one@example.org\r\n"
                            "DTSTART:20300304T100000Z\r\nDTEND:20300304T103000Z\r\n" +
                            properties + "END:VEVENT\r\nEND:VCALENDAR\r\n";
    const Calendar calendar(text);
    const auto occurrences = calendar.expand({utc(2030, 3, 4), utc(2030, 3, 5)}, userAddresses);
    if (occurrences.size() != 1) {
        ADD_FAILURE() << occurrences.size() << " occurrences from:\n" << text.constData();
        return std::nullopt;
    }
    return occurrences.front();
}

const QStringList ada = {u"ada@example.org"_s};

// ---- Real exports ------------------------------------------------------------------------------------------------

TEST(EdsEventMappingFixtures, ZimbraMonthlySeriesWithExtraDatesExceptionsAndMovedInstances)
{
    LOAD_FIXTURE(calendar, "icaljs_recur_instances_zimbra.ics");
    const auto occurrences = calendar->expand({utc(2012, 10, 1), utc(2013, 4, 30)}, {u"calmozilla1@gmail.com"_s});

    // First Tuesdays at 10:00 Los Angeles time, extra dates on 11-05 (moved to 11-06 20:00), 11-10 and 11-30, the
    // first instance moved to 15:00, and no instance on the excluded 12-04, 02-05 and 04-02.
    EXPECT_THAT(timings(occurrences),
                ElementsAre(u"2012-10-02T22:00:00Z – 2012-10-02T22:30:00Z (moved from 2012-10-02T17:00:00Z)"_s,
                            u"2012-11-06T18:00:00Z – 2012-11-06T18:30:00Z"_s,
                            u"2012-11-07T04:00:00Z – 2012-11-07T04:30:00Z (moved from 2012-11-05T18:00:00Z)"_s,
                            u"2012-11-10T18:00:00Z – 2012-11-10T18:30:00Z"_s,
                            u"2012-11-30T18:00:00Z – 2012-11-30T18:30:00Z"_s,
                            u"2013-01-01T18:00:00Z – 2013-01-01T18:30:00Z"_s,
                            u"2013-03-05T18:00:00Z – 2013-03-05T18:30:00Z"_s));
    for (const auto& occurrence : occurrences) {
        EXPECT_EQ(occurrence.identity.seriesIdentifier, u"external:623c13c0-6c2b-45d6-a12b-c33ad61c4868"_s);
        EXPECT_EQ(occurrence.identity.scheduledStart, occurrence.startDate);
        EXPECT_TRUE(occurrence.isRecurring);
        EXPECT_EQ(occurrence.title, u"Crazy Event Thingy!"_s);
    }
    // The series carries the attendees; the moved instances were written without them.
    const auto& regular = occurrences[1];
    EXPECT_EQ(regular.participationStatus, MeetingParticipationStatus::accepted);
    EXPECT_TRUE(regular.hasAttendees);
    EXPECT_EQ(regular.location, u"PLACE"_s);
    EXPECT_EQ(occurrences[0].participationStatus, MeetingParticipationStatus::unknown);
    EXPECT_FALSE(occurrences[0].hasAttendees);
}

TEST(EdsEventMappingFixtures, GoogleDailySeriesWithoutEnd)
{
    LOAD_FIXTURE(calendar, "icaljs_daily_recur_google.ics");
    const auto occurrences = calendar->expand({utc(2012, 8, 1), utc(2012, 8, 4)}, {u"calmozilla1@gmail.com"_s});

    EXPECT_THAT(timings(occurrences), ElementsAre(u"2012-08-01T12:00:00Z – 2012-08-01T13:00:00Z"_s,
                                                  u"2012-08-02T12:00:00Z – 2012-08-02T13:00:00Z"_s,
                                                  u"2012-08-03T12:00:00Z – 2012-08-03T13:00:00Z"_s));
    const auto& first = occurrences.front();
    EXPECT_EQ(first.title, u"Every day recurring"_s);
    // "LOCATION:" and "DESCRIPTION:" are present but empty.
    EXPECT_EQ(first.location, std::nullopt);
    EXPECT_EQ(first.meetingURL, std::nullopt);
    // The only ATTENDEE is the e-mail alarm's recipient, not a meeting participant.
    EXPECT_FALSE(first.hasAttendees);
    EXPECT_EQ(first.participationStatus, MeetingParticipationStatus::unknown);
    EXPECT_EQ(first.identity.seriesIdentifier, u"external:tgh9qho17b07pk2n2ji3gluans@google.com"_s);
}

TEST(EdsEventMappingFixtures, ThunderbirdCancelledInstanceStaysAsCancelled)
{
    LOAD_FIXTURE(calendar, "rie_cancelled_occurrence_thunderbird.ics");
    const auto occurrences = calendar->expand({utc(2020, 1, 27), utc(2020, 2, 3)});

    EXPECT_THAT(timings(occurrences), ElementsAre(u"2020-01-28T21:00:00Z – 2020-01-28T22:00:00Z"_s,
                                                  u"2020-01-29T21:00:00Z – 2020-01-29T22:00:00Z cancelled"_s,
                                                  u"2020-01-30T21:00:00Z – 2020-01-30T22:00:00Z"_s));
    // The cancelled instance is the same occurrence of the series, not a new meeting.
    EXPECT_EQ(occurrences[1].identity.seriesIdentifier, occurrences[0].identity.seriesIdentifier);
    EXPECT_EQ(occurrences[1].identity.occurrenceStart, utc(2020, 1, 29, 21));
}

TEST(EdsEventMappingFixtures, GoogleWeeklySeriesFollowsLisbonDaylightSavingAndFindsTheFoldedZoomLink)
{
    LOAD_FIXTURE(calendar, "rie_google_export_folded_zoom_vanity_url.ics");
    const auto occurrences = calendar->expand({utc(2020, 10, 12), utc(2020, 11, 3)});

    EXPECT_THAT(timings(occurrences), ElementsAre(u"2020-10-12T10:30:00Z – 2020-10-12T12:00:00Z"_s,
                                                  u"2020-10-19T10:30:00Z – 2020-10-19T12:00:00Z"_s,
                                                  u"2020-10-26T11:30:00Z – 2020-10-26T13:00:00Z"_s,
                                                  u"2020-11-02T11:30:00Z – 2020-11-02T13:00:00Z"_s));
    for (const auto& occurrence : occurrences) {
        EXPECT_EQ(occurrence.meetingURL,
                  QUrl(u"https://videoconf-colibri.zoom.us/j/93800310242?pwd=K3FBUVJUV2hrTm1OR2RWb0ZabTJkZz09"_s));
    }
}

TEST(EdsEventMappingFixtures, NextcloudExceptionsWrittenInUtcRemoveTheirInstances)
{
    LOAD_FIXTURE(calendar, "rie_exdate_utc_vs_tzid_sabredav.ics");
    const auto occurrences = calendar->expand({utc(2019, 3, 1), utc(2019, 5, 1)});

    // 00:30 in Berlin; 03-11 and 03-25 are excluded by UTC instants of that local time.
    EXPECT_THAT(timings(occurrences), ElementsAre(u"2019-03-03T23:30:00Z – 2019-03-04T00:00:00Z"_s,
                                                  u"2019-03-17T23:30:00Z – 2019-03-18T00:00:00Z"_s,
                                                  u"2019-03-31T22:30:00Z – 2019-03-31T23:00:00Z"_s,
                                                  u"2019-04-07T22:30:00Z – 2019-04-07T23:00:00Z"_s,
                                                  u"2019-04-14T22:30:00Z – 2019-04-14T23:00:00Z"_s,
                                                  u"2019-04-21T22:30:00Z – 2019-04-21T23:00:00Z"_s));
}

TEST(EdsEventMappingFixtures, ExchangeEventStoredByEvolutionUsesTheSystemZoneAndAFloatingUntil)
{
    LOAD_FIXTURE(calendar, "rie_exchange2010_via_evolution.ics");
    // The file defines only "W. Europe Standard Time"; Europe/Berlin must come from the system zone database, or
    // the times would be read in the user's zone (Tokyo) and be seven hours early.
    const auto occurrences = calendar->expand({utc(2020, 4, 24), utc(2020, 5, 2)});

    EXPECT_THAT(timings(occurrences), ElementsAre(u"2020-04-26T12:00:00Z – 2020-04-26T12:30:00Z"_s,
                                                  u"2020-04-28T12:00:00Z – 2020-04-28T12:30:00Z"_s));
    EXPECT_EQ(occurrences.front().title, u"Reoccur"_s);
}

TEST(EdsEventMappingFixtures, AllDayEventCoversOneDayOfTheUserEndExclusive)
{
    LOAD_FIXTURE(calendar, "rie_all_day_value_date.ics");
    const Date tokyoMidnight = utc(2019, 3, 3, 15);

    const auto occurrences = calendar->expand({utc(2019, 3, 1), utc(2019, 3, 10)});
    ASSERT_EQ(occurrences.size(), 1u);
    EXPECT_TRUE(occurrences.front().isAllDay);
    EXPECT_EQ(occurrences.front().startDate, tokyoMidnight);
    EXPECT_EQ(occurrences.front().endDate, tokyoMidnight + 86'400);
    EXPECT_EQ(occurrences.front().title, u"test2"_s);

    // The next day, in the user's zone, does not contain it: DTEND is the first day after the event.
    EXPECT_TRUE(calendar->expand({tokyoMidnight + 86'400, tokyoMidnight + 2 * 86'400}).empty());
    EXPECT_EQ(calendar->expand({tokyoMidnight + 86'400 - 1, tokyoMidnight + 2 * 86'400}).size(), 1u);
}

TEST(EdsEventMappingFixtures, GoogleMovedInstanceListedBeforeItsSeries)
{
    LOAD_FIXTURE(calendar, "rie_google_override_before_master.ics");
    const auto occurrences = calendar->expand({utc(2021, 11, 20), utc(2022, 3, 1)});

    // Last Fridays at 21:30 Berlin; the one of 12-31 moved to 12-17. The override has no DTEND: it ends as it
    // starts, like the series it belongs to.
    EXPECT_THAT(timings(occurrences),
                ElementsAre(u"2021-11-26T20:30:00Z – 2021-11-26T20:30:00Z"_s,
                            u"2021-12-17T20:30:00Z – 2021-12-17T20:30:00Z (moved from 2021-12-31T20:30:00Z)"_s,
                            u"2022-01-28T20:30:00Z – 2022-01-28T20:30:00Z"_s,
                            u"2022-02-25T20:30:00Z – 2022-02-25T20:30:00Z"_s));
    EXPECT_EQ(occurrences[1].identity.scheduledStart, utc(2021, 12, 17, 20, 30));
}

TEST(EdsEventMappingFixtures, PodioUrlFoldedWithATabIsTheJoinLink)
{
    LOAD_FIXTURE(calendar, "icalendar_url_property_tab_folded.ics");
    const auto occurrences = calendar->expand({utc(2022, 2, 22), utc(2022, 2, 23)});

    ASSERT_EQ(occurrences.size(), 1u);
    const auto& occurrence = occurrences.front();
    EXPECT_EQ(timing(occurrence), u"2022-02-22T18:30:00Z – 2022-02-22T19:30:00Z"_s);
    EXPECT_EQ(occurrence.meetingURL,
              QUrl(u"https://podio.com/xxxxxxyyyyyy/zpodio-testgelande/apps/calendar/items/5"_s));
    EXPECT_EQ(occurrence.title, u"Termin 4353 und\"so\""_s);
    EXPECT_EQ(occurrence.location, u"online"_s);
    EXPECT_FALSE(occurrence.isRecurring);
}

TEST(EdsEventMappingFixtures, ItipMessageStreamMapsWhatHasATimeAndSkipsTheRest)
{
    const auto stream = Calendar::fromFixture("libical_itip_incoming_declined.ics");
    if (!stream) {
        GTEST_SKIP() << "The shared iCalendar fixtures are not here: " ORVANE_SHARED_FIXTURES_DIR;
    }
    ASSERT_TRUE(stream->parsed());
    // Fifteen messages, each its own calendar: their UIDs repeat, so they cannot be one store.
    std::vector<std::vector<MeetingOccurrence>> perMessage;
    for (GRef<ICalComponent> message(i_cal_component_get_first_component(stream->root(), I_CAL_VCALENDAR_COMPONENT));
         message; message.reset(i_cal_component_get_next_component(stream->root(), I_CAL_VCALENDAR_COMPONENT))) {
        gchar* text = i_cal_component_as_ical_string(message.get());
        const Calendar calendar{QByteArray(text)};
        g_free(text);
        perMessage.push_back(calendar.expand({utc(1996, 1, 1), utc(1998, 12, 31)}, {u"c@example.com"_s}));
    }
    ASSERT_EQ(perMessage.size(), 15u);

    // #1, a request with a malformed DTEND: still a meeting at its start; C has not answered yet (no PARTSTAT).
    ASSERT_EQ(perMessage[0].size(), 1u);
    EXPECT_EQ(perMessage[0][0].startDate, utc(1997, 7, 1, 10));
    EXPECT_EQ(perMessage[0][0].participationStatus, MeetingParticipationStatus::pending);
    EXPECT_TRUE(perMessage[0][0].hasAttendees);
    // #2 and #3 reschedule and update one meeting: each message on its own maps its own version.
    ASSERT_EQ(perMessage[1].size(), 1u);
    ASSERT_EQ(perMessage[2].size(), 1u);
    EXPECT_EQ(perMessage[1][0].identity.seriesIdentifier, perMessage[2][0].identity.seriesIdentifier);
    EXPECT_EQ(timing(perMessage[2][0]), u"1997-07-01T19:00:00Z – 1997-07-01T19:30:00Z"_s);
    // Replies (#5, #6, #8 – #10) and the cancellation (#11) carry no start: nothing to alert about.
    for (const std::size_t reply : {4u, 5u, 7u, 8u, 9u, 10u}) {
        EXPECT_TRUE(perMessage[reply].empty()) << "message #" << reply + 1;
    }
    // #12, a counter-proposal, gives its length as DURATION.
    ASSERT_EQ(perMessage[11].size(), 1u);
    EXPECT_EQ(timing(perMessage[11][0]), u"1997-07-01T19:00:00Z – 1997-07-01T21:00:00Z"_s);
    // #15 is free/busy information, not an event.
    EXPECT_TRUE(perMessage[14].empty());
}

// ---- The user's answer ---------------------------------------------------------------------------------------------

TEST(EdsEventMapping, ParticipationIsTheUsersOwnAttendeeAnswer)
{
    const struct {
        const char* name;
        QByteArray attendees;
        QStringList user;
        MeetingParticipationStatus expected;
    } cases[] = {
        {"accepted", "ATTENDEE;PARTSTAT=ACCEPTED:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::accepted},
        {"declined, scheme and address in capitals", "ATTENDEE;PARTSTAT=DECLINED:MAILTO:Ada@Example.ORG\r\n", ada,
         MeetingParticipationStatus::declined},
        {"tentative, mixed-case scheme", "ATTENDEE;PARTSTAT=TENTATIVE:Mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::tentative},
        {"needs action", "ATTENDEE;PARTSTAT=NEEDS-ACTION:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::pending},
        {"no PARTSTAT means not answered yet", "ATTENDEE;RSVP=TRUE:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::pending},
        {"delegated", "ATTENDEE;PARTSTAT=DELEGATED:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::delegated},
        {"completed", "ATTENDEE;PARTSTAT=COMPLETED:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::completed},
        {"in process", "ATTENDEE;PARTSTAT=IN-PROCESS:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::inProcess},
        {"in process, as libical writes it", "ATTENDEE;PARTSTAT=INPROCESS:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::inProcess},
        {"an answer iCalendar does not define", "ATTENDEE;PARTSTAT=X-MAYBE-LATER:mailto:ada@example.org\r\n", ada,
         MeetingParticipationStatus::unknown},
        {"found by address, not by position",
         "ATTENDEE;PARTSTAT=DECLINED:mailto:bob@example.org\r\nATTENDEE;PARTSTAT=ACCEPTED:mailto:ada@example.org\r\n",
         ada, MeetingParticipationStatus::accepted},
        {"the user's second address",
         "ATTENDEE;PARTSTAT=DECLINED:mailto:ada@work.example\r\n",
         {u"ada@example.org"_s, u"ada@work.example"_s},
         MeetingParticipationStatus::declined},
        {"the first of two entries for the user",
         "ATTENDEE;PARTSTAT=DECLINED:mailto:ada@example.org\r\nATTENDEE;PARTSTAT=ACCEPTED:mailto:ada@example.org\r\n",
         ada, MeetingParticipationStatus::declined},
        {"attendees, none of them the user", "ATTENDEE;PARTSTAT=DECLINED:mailto:bob@example.org\r\n", ada,
         MeetingParticipationStatus::unknown},
        {"an address that only contains the user's", "ATTENDEE;PARTSTAT=DECLINED:mailto:grace.ada@example.org\r\n", ada,
         MeetingParticipationStatus::unknown},
        {"no attendees", "", ada, MeetingParticipationStatus::unknown},
        {"the user's addresses are not known",
         "ATTENDEE;PARTSTAT=DECLINED:mailto:ada@example.org\r\n",
         {},
         MeetingParticipationStatus::unknown},
    };
    for (const auto& row : cases) {
        const auto occurrence = single(row.attendees, row.user);
        ASSERT_TRUE(occurrence) << row.name;
        EXPECT_EQ(occurrence->participationStatus, row.expected) << row.name;
    }
}

TEST(EdsEventMapping, CalendarUserAddressIgnoresSchemeCaseAndSurroundingSpace)
{
    EXPECT_EQ(eds::calendarUserAddress("mailto:Ada@Example.com"), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress("MAILTO:ADA@EXAMPLE.COM"), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress(" Mailto:ada@example.com "), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress("ada@example.com"), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress(nullptr), QString());
}

TEST(EdsEventMapping, HasAttendeesMeansSomeoneBesidesTheUser)
{
    const struct {
        const char* name;
        QByteArray attendees;
        bool expected;
    } cases[] = {
        {"nobody", "", false},
        {"only the user", "ATTENDEE;PARTSTAT=ACCEPTED:mailto:ada@example.org\r\n", false},
        {"only the user, written in capitals", "ATTENDEE:MAILTO:ADA@EXAMPLE.ORG\r\n", false},
        {"only someone else", "ATTENDEE:mailto:bob@example.org\r\n", true},
        {"the user first, then someone else", "ATTENDEE:mailto:ada@example.org\r\nATTENDEE:mailto:bob@example.org\r\n",
         true},
        {"someone else first, then the user", "ATTENDEE:mailto:bob@example.org\r\nATTENDEE:mailto:ada@example.org\r\n",
         true},
        {"a room", "ATTENDEE;CUTYPE=ROOM:mailto:room-4@example.org\r\n", true},
        {"an organizer alone is not an attendee", "ORGANIZER:mailto:bob@example.org\r\n", false},
    };
    for (const auto& row : cases) {
        const auto occurrence = single(row.attendees, ada);
        ASSERT_TRUE(occurrence) << row.name;
        EXPECT_EQ(occurrence->hasAttendees, row.expected) << row.name;
    }
}

// ---- Titles, links, identity -------------------------------------------------------------------------------------

TEST(EdsEventMapping, EventsWithoutATitleAreNamedUntitled)
{
    const struct {
        QByteArray summary;
        QString title;
    } cases[] = {
        {"", u"Untitled event"_s},
        {"SUMMARY:\r\n", u"Untitled event"_s},
        {"SUMMARY:   \r\n", u"Untitled event"_s},
        {"SUMMARY:Design review\r\n", u"Design review"_s},
        {"SUMMARY:Caf\xc3\xa9 \\, croissants\r\n", u"Café , croissants"_s},
    };
    for (const auto& [summary, title] : cases) {
        const auto occurrence = single(summary);
        ASSERT_TRUE(occurrence) << summary.constData();
        EXPECT_EQ(occurrence->title, title) << summary.constData();
    }
}

TEST(EdsEventMapping, JoinLinkComesFromUrlThenLocationThenDescription)
{
    const struct {
        const char* name;
        QByteArray properties;
        std::optional<QUrl> expected;
    } cases[] = {
        {"Teams link in URL", "URL:https://teams.microsoft.com/l/meetup-join/19%3ameeting_abc%40thread.v2/0\r\n",
         QUrl(u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_abc%40thread.v2/0"_s)},
        {"Zoom link in the description", "DESCRIPTION:Join: https://acme.zoom.us/j/81234567890?pwd=abc\\nThanks\r\n",
         QUrl(u"https://acme.zoom.us/j/81234567890?pwd=abc"_s)},
        {"Meet link in the location beats Zoom in the description",
         "LOCATION:https://meet.google.com/abc-defg-hij\r\nDESCRIPTION:https://zoom.us/j/1\r\n",
         QUrl(u"https://meet.google.com/abc-defg-hij"_s)},
        {"a page that is not a meeting service in the description",
         "DESCRIPTION:Agenda: https://wiki.example.org/agenda\r\n", std::nullopt},
        {"no text at all", "", std::nullopt},
    };
    for (const auto& row : cases) {
        const auto occurrence = single(row.properties);
        ASSERT_TRUE(occurrence) << row.name;
        EXPECT_EQ(occurrence->meetingURL, row.expected) << row.name;
    }
}

TEST(EdsEventMapping, StatusAllDayAndLocationFlags)
{
    EXPECT_TRUE(single("STATUS:CANCELLED\r\n")->isCanceled);
    EXPECT_FALSE(single("STATUS:CONFIRMED\r\n")->isCanceled);
    EXPECT_FALSE(single("STATUS:TENTATIVE\r\n")->isCanceled);
    EXPECT_EQ(single("LOCATION:Room 4\r\n")->location, u"Room 4"_s);
    EXPECT_EQ(single("LOCATION:\r\n")->location, std::nullopt);
    EXPECT_FALSE(single("")->isRecurring);
    EXPECT_FALSE(single("")->isAllDay);
}

TEST(EdsEventMapping, IdentityCarriesTheCalendarAndTheSeries)
{
    const auto occurrence = single("SUMMARY:Planning\r\n");
    ASSERT_TRUE(occurrence);
    EXPECT_EQ(occurrence->identity.seriesIdentifier, u"external:one@example.org"_s);
    EXPECT_EQ(occurrence->identity.sourceIdentifier, u"local-stub"_s);
    EXPECT_EQ(occurrence->identity.calendarIdentifier, u"cal-fixture"_s);
    EXPECT_EQ(occurrence->identity.calendarFingerprint,
              (CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Fixture"_s}));
    EXPECT_TRUE(occurrence->identity.calendarFingerprintIsUnique);
    EXPECT_EQ(occurrence->calendar.identifier, u"cal-fixture"_s);
    // A single event is keyed by its own start.
    EXPECT_EQ(occurrence->identity.occurrenceStart, utc(2030, 3, 4, 10));
    EXPECT_EQ(occurrence->identity.scheduledStart, utc(2030, 3, 4, 10));
}

TEST(EdsEventMapping, MovedInstanceIsKeyedByTheSlotItReplaces)
{
    const auto calendar = calendarOf({
        "BEGIN:VEVENT",
        "UID:standup@example.org",
        "SUMMARY:Standup",
        "DTSTART:20300304T090000Z",
        "DTEND:20300304T091500Z",
        "RRULE:FREQ=DAILY;COUNT=4",
        "EXDATE:20300306T090000Z",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:standup@example.org",
        "SUMMARY:Standup (later today)",
        "RECURRENCE-ID:20300305T090000Z",
        "DTSTART:20300305T140000Z",
        "DTEND:20300305T141500Z",
        "END:VEVENT",
    });
    const auto occurrences = calendar.expand({utc(2030, 3, 4), utc(2030, 3, 8)});

    EXPECT_THAT(timings(occurrences),
                ElementsAre(u"2030-03-04T09:00:00Z – 2030-03-04T09:15:00Z"_s,
                            u"2030-03-05T14:00:00Z – 2030-03-05T14:15:00Z (moved from 2030-03-05T09:00:00Z)"_s,
                            u"2030-03-07T09:00:00Z – 2030-03-07T09:15:00Z"_s));
    const auto& moved = occurrences[1];
    EXPECT_EQ(moved.identity.occurrenceStart, utc(2030, 3, 5, 9));
    EXPECT_EQ(moved.identity.scheduledStart, utc(2030, 3, 5, 14));
    EXPECT_EQ(moved.title, u"Standup (later today)"_s);
    EXPECT_TRUE(moved.isRecurring);
    for (const auto& occurrence : occurrences) {
        EXPECT_EQ(occurrence.identity.seriesIdentifier, u"external:standup@example.org"_s);
    }
    EXPECT_EQ(occurrences[2].identity.occurrenceStart, occurrences[2].startDate);
}

TEST(EdsEventMapping, InstanceMovedOutOfTheIntervalLeavesNothingBehind)
{
    const auto calendar = calendarOf({
        "BEGIN:VEVENT",
        "UID:standup@example.org",
        "DTSTART:20300304T090000Z",
        "DTEND:20300304T091500Z",
        "RRULE:FREQ=DAILY;COUNT=4",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:standup@example.org",
        "RECURRENCE-ID:20300305T090000Z",
        "DTSTART:20300320T090000Z",
        "DTEND:20300320T091500Z",
        "END:VEVENT",
    });
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 5), utc(2030, 3, 6)})), ElementsAre());
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 20), utc(2030, 3, 21)})),
                ElementsAre(u"2030-03-20T09:00:00Z – 2030-03-20T09:15:00Z (moved from 2030-03-05T09:00:00Z)"_s));
}

TEST(EdsEventMapping, ZoneThatOnlyTheCalendarDefinesAppliesToSingleEventsSeriesAndMovedInstances)
{
    // Exchange and Outlook name their zones ("India Standard Time") and define them beside the events; the calendar
    // service returns each event without those definitions, so only the resolver knows the zone.
    const auto calendar = calendarOf({
        "BEGIN:VTIMEZONE",
        "TZID:India Standard Time",
        "BEGIN:STANDARD",
        "DTSTART:16010101T000000",
        "TZOFFSETFROM:+0530",
        "TZOFFSETTO:+0530",
        "END:STANDARD",
        "END:VTIMEZONE",
        "BEGIN:VEVENT",
        "UID:single@example.org",
        "DTSTART;TZID=India Standard Time:20300304T100000",
        "DTEND;TZID=India Standard Time:20300304T110000",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:lasting@example.org",
        "DTSTART;TZID=India Standard Time:20300304T120000",
        "DURATION:PT45M",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:series@example.org",
        "DTSTART;TZID=India Standard Time:20300305T090000",
        "DTEND;TZID=India Standard Time:20300305T093000",
        "RRULE:FREQ=DAILY;COUNT=2",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:series@example.org",
        "RECURRENCE-ID;TZID=India Standard Time:20300306T090000",
        "DTSTART;TZID=India Standard Time:20300306T150000",
        "DTEND;TZID=India Standard Time:20300306T153000",
        "END:VEVENT",
    });
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 3), utc(2030, 3, 8)})),
                ElementsAre(u"2030-03-04T04:30:00Z – 2030-03-04T05:30:00Z"_s,
                            u"2030-03-04T06:30:00Z – 2030-03-04T07:15:00Z"_s,
                            u"2030-03-05T03:30:00Z – 2030-03-05T04:00:00Z"_s,
                            u"2030-03-06T09:30:00Z – 2030-03-06T10:00:00Z (moved from 2030-03-06T03:30:00Z)"_s));
}

TEST(EdsEventMapping, FloatingTimesAreTheUsersLocalTime)
{
    const auto calendar = calendarOf({
        "BEGIN:VEVENT",
        "UID:floating@example.org",
        "DTSTART:20300304T090000",
        "DTEND:20300304T100000",
        "END:VEVENT",
    });
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 3), utc(2030, 3, 5)})),
                ElementsAre(u"2030-03-04T00:00:00Z – 2030-03-04T01:00:00Z"_s));
}

TEST(EdsEventMapping, OccurrencesOverlappingTheIntervalAreIncluded)
{
    // 10:00-11:00 on 03-04, once alone and once as the first instance of a weekly series: both must be cut alike.
    const auto calendar = calendarOf({
        "BEGIN:VEVENT",
        "UID:single@example.org",
        "DTSTART:20300304T100000Z",
        "DTEND:20300304T110000Z",
        "END:VEVENT",
        "BEGIN:VEVENT",
        "UID:series@example.org",
        "DTSTART:20300304T100000Z",
        "DTEND:20300304T110000Z",
        "RRULE:FREQ=WEEKLY;COUNT=2",
        "END:VEVENT",
    });
    const struct {
        const char* name;
        FetchInterval interval;
        std::size_t count;
    } cases[] = {
        {"in progress when the interval starts", {utc(2030, 3, 4, 10, 59), utc(2030, 3, 4, 12)}, 2},
        {"entirely inside", {utc(2030, 3, 4, 9), utc(2030, 3, 4, 12)}, 2},
        {"covering the interval", {utc(2030, 3, 4, 10, 15), utc(2030, 3, 4, 10, 45)}, 2},
        {"starting before the interval ends", {utc(2030, 3, 4, 8), utc(2030, 3, 4, 10, 1)}, 2},
        {"ended when the interval starts", {utc(2030, 3, 4, 11), utc(2030, 3, 4, 12)}, 0},
        {"starting after the interval", {utc(2030, 3, 4, 8), utc(2030, 3, 4, 9, 59)}, 0},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(calendar.expand(row.interval).size(), row.count) << row.name;
    }
}

gboolean collectInstance(ICalComponent*, ICalTime* start, ICalTime* end, gpointer data, GCancellable*, GError**)
{
    auto* lines = static_cast<QStringList*>(data);
    lines->append(iso(eds::toDate(start, tokyo())) + u" – "_s + iso(eds::toDate(end, tokyo())));
    return TRUE;
}

ICalTimezone* builtinZone(const gchar* tzid, gpointer, GCancellable*, GError**)
{
    return i_cal_timezone_get_builtin_timezone(tzid);
}

TEST(EdsEventMapping, LongRunningSeriesGiveTheInstancesOfAWalkFromTheirFirstOne)
{
    // Series that began six years before the intervals: the mapping may skip ahead rather than walk from the first
    // instance, but must land on exactly the instances libecal finds when it walks them all.
    const char* const series[] = {
        "DTSTART:20240108T090000Z\nDTEND:20240108T093000Z\nRRULE:FREQ=DAILY",
        "DTSTART;TZID=Europe/Berlin:20240108T090000\nDTEND;TZID=Europe/Berlin:20240108T093000\n"
        "RRULE:FREQ=DAILY;INTERVAL=3",
        "DTSTART;TZID=America/New_York:20240108T090000\nDTEND;TZID=America/New_York:20240108T100000\n"
        "RRULE:FREQ=DAILY;BYDAY=MO,TU,WE,TH,FR",
        "DTSTART;TZID=Europe/Berlin:20240108T170000\nDTEND;TZID=Europe/Berlin:20240108T180000\nRRULE:FREQ=WEEKLY",
        "DTSTART;TZID=Europe/Berlin:20240109T100000\nDURATION:PT45M\nRRULE:FREQ=WEEKLY;INTERVAL=2;BYDAY=TU,TH;WKST=SU",
        // A first instance on a Wednesday, which the rule (Saturdays) would not produce.
        "DTSTART;TZID=Europe/Berlin:20240110T080000\nDTEND;TZID=Europe/Berlin:20240110T083000\n"
        "RRULE:FREQ=WEEKLY;BYDAY=SA",
        "DTSTART:20240108T120000Z\nDTEND:20240108T130000Z\nRRULE:FREQ=DAILY;UNTIL=20300306T120000Z",
        "DTSTART;TZID=Europe/Berlin:20240108T140000\nDTEND;TZID=Europe/Berlin:20240108T150000\nRRULE:FREQ=DAILY\n"
        "EXDATE;TZID=Europe/Berlin:20300305T140000,20301025T140000\n"
        "RDATE;TZID=Europe/Berlin:20300306T200000,20301026T200000",
        "DTSTART;VALUE=DATE:20240108\nDTEND;VALUE=DATE:20240109\nRRULE:FREQ=WEEKLY;BYDAY=MO,FR",
        "DTSTART;TZID=Europe/Berlin:20240108T090000\nDTEND;TZID=Europe/Berlin:20240108T091500\n"
        "RRULE:FREQ=DAILY;BYHOUR=9,15",
        // Three days long: the instance that started before an interval still reaches into it.
        "DTSTART;TZID=Europe/Berlin:20240108T100000\nDTEND;TZID=Europe/Berlin:20240111T100000\nRRULE:FREQ=WEEKLY",
        "DTSTART:20240108T090000Z\nDTEND:20240108T100000Z\nRRULE:FREQ=WEEKLY;COUNT=400",
        "DTSTART;TZID=Europe/Berlin:20240108T090000\nDTEND;TZID=Europe/Berlin:20240108T100000\n"
        "RRULE:FREQ=MONTHLY;BYDAY=1MO",
    };
    // New York's and Berlin's switches to daylight saving time, Berlin's switch back, and a Wednesday start.
    const FetchInterval intervals[] = {
        {utc(2030, 3, 4), utc(2030, 3, 11)},
        {utc(2030, 3, 27), utc(2030, 4, 3)},
        {utc(2030, 10, 24), utc(2030, 10, 31)},
        {utc(2030, 3, 6, 12), utc(2030, 3, 13)},
    };
    for (const char* properties : series) {
        const QByteArray text = QByteArray("BEGIN:VCALENDAR\r\nBEGIN:VEVENT\r\nUID:long@example.org\r\n") +
                                QByteArray(properties).replace("\n", "\r\n") + "\r\nEND:VEVENT\r\nEND:VCALENDAR\r\n";
        const Calendar calendar(text);
        ASSERT_EQ(calendar.events().size(), 1u) << properties;
        for (const auto& interval : intervals) {
            QStringList walked;
            GRef<ICalTime> from(i_cal_time_new_from_timet_with_zone(time_t(interval.start.unixTime()), FALSE,
                                                                    i_cal_timezone_get_utc_timezone()));
            GRef<ICalTime> to(i_cal_time_new_from_timet_with_zone(time_t(interval.end.unixTime()), FALSE,
                                                                  i_cal_timezone_get_utc_timezone()));
            ASSERT_TRUE(e_cal_recur_generate_instances_sync(calendar.events().front(), from.get(), to.get(),
                                                            collectInstance, &walked, builtinZone, nullptr, tokyo(),
                                                            nullptr, nullptr));
            EXPECT_EQ(timings(calendar.expand(interval)), walked)
                << properties << "\nbetween " << iso(interval.start).toStdString() << " and "
                << iso(interval.end).toStdString();
        }
    }
}

TEST(EdsEventMapping, EventWithoutStartIsSkipped)
{
    const auto calendar = calendarOf({
        "BEGIN:VEVENT",
        "UID:nostart@example.org",
        "SUMMARY:Someday",
        "END:VEVENT",
    });
    EXPECT_TRUE(calendar.expand({utc(1970, 1, 1), utc(2100, 1, 1)}).empty());
}

} // namespace
