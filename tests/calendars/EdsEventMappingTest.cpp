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

/// "start +minutes" in UTC: one short line per occurrence, readable on failure.
QString span(Date start, Date end)
{
    return start.toDateTime().toString(u"yyyy-MM-ddTHH:mm"_s) + u" +"_s + QString::number((end - start) / 60) + u'm';
}

/// The span of an occurrence, with the slot it replaces when it was moved.
QString timing(const MeetingOccurrence& occurrence)
{
    QString line = span(occurrence.startDate, occurrence.endDate);
    if (occurrence.identity.occurrenceStart != occurrence.startDate) {
        line += u" from "_s + span(occurrence.identity.occurrenceStart, occurrence.identity.occurrenceStart).chopped(4);
    }
    return occurrence.isCanceled ? line + u" cancelled"_s : line;
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

/// One iCalendar text. Its events stand alone (as the calendar service returns them, without their VCALENDAR), so a
/// TZID is found only through the context's resolver: the text's VTIMEZONEs, then the system zone database.
class Calendar {
public:
    /// `text` may use bare LF line ends.
    explicit Calendar(QByteArray text)
        : m_root(i_cal_component_new_from_string(text.replace("\r\n", "\n").replace("\n", "\r\n").constData()))
    {
        if (m_root && i_cal_component_isa(m_root.get()) == I_CAL_VCALENDAR_COMPONENT) {
            for (GRef<ICalComponent> event(i_cal_component_get_first_component(root(), I_CAL_VEVENT_COMPONENT)); event;
                 event.reset(i_cal_component_get_next_component(root(), I_CAL_VEVENT_COMPONENT))) {
                m_owned.emplace_back(i_cal_component_clone(event.get()));
                m_events.push_back(m_owned.back().get());
            }
        }
    }

    bool parsed() const { return m_root != nullptr; }
    ICalComponent* root() const { return m_root.get(); }
    const std::vector<ICalComponent*>& events() const { return m_events; }

    std::vector<MeetingOccurrence> expand(FetchInterval interval, QStringList userAddresses = {}) const
    {
        const eds::CalendarContext context{
            .calendar = {.identifier = u"cal-fixture"_s, .sourceIdentifier = u"local-stub"_s},
            .fingerprint = CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Fixture"_s},
            .fingerprintIsUnique = true,
            .userAddresses = std::move(userAddresses),
            .defaultZone = tokyo(),
            .resolveZone = [this](const char* tzid) { return zone(tzid); },
        };
        auto occurrences = eds::expandEvents(events(), interval, context);
        std::stable_sort(occurrences.begin(), occurrences.end(),
                         [](const auto& lhs, const auto& rhs) { return lhs.startDate < rhs.startDate; });
        return occurrences;
    }

private:
    ICalTimezone* zone(const char* tzid) const
    {
        if (tzid == nullptr) {
            return nullptr;
        }
        auto cached = m_zones.find(tzid);
        if (cached == m_zones.end()) {
            cached = m_zones.emplace(tzid, i_cal_component_get_timezone(root(), tzid)).first;
        }
        return cached->second ? cached->second.get() : i_cal_timezone_get_builtin_timezone(tzid);
    }

    GRef<ICalComponent> m_root;
    std::vector<GRef<ICalComponent>> m_owned;
    std::vector<ICalComponent*> m_events;
    mutable std::map<std::string, GRef<ICalTimezone>> m_zones;
};

std::unique_ptr<Calendar> fixture(const QString& name)
{
    QFile file(QString::fromUtf8(ORVANE_SHARED_FIXTURES_DIR "/ics/") + name);
    return file.open(QIODevice::ReadOnly) ? std::make_unique<Calendar>(file.readAll()) : nullptr;
}

/// One VCALENDAR around `body`.
Calendar calendarOf(const QByteArray& body)
{
    return Calendar("BEGIN:VCALENDAR\nVERSION:2.0\nPRODID:-//Orvane//Tests//EN\n" + body + "END:VCALENDAR\n");
}

/// One event from `properties`, mapped over a day around it.
std::optional<MeetingOccurrence> single(const QByteArray& properties, const QStringList& userAddresses = {})
{
    const QByteArray body = "BEGIN:VEVENT\nUID:one@example.org\nDTSTART:20300304T100000Z\nDTEND:20300304T103000Z\n" +
                            properties + "END:VEVENT\n";
    const auto occurrences = calendarOf(body).expand({utc(2030, 3, 4), utc(2030, 3, 5)}, userAddresses);
    if (occurrences.size() != 1) {
        ADD_FAILURE() << occurrences.size() << " occurrences from:\n" << body.constData();
        return std::nullopt;
    }
    return occurrences.front();
}

const QStringList ada = {u"ada@example.org"_s};

/// What a fixture says about an occurrence, by name, so that a row names only the facts it asserts.
QString fact(const MeetingOccurrence& occurrence, const QString& name)
{
    const auto yesNo = [](bool value) {
        return value ? u"yes"_s : u"no"_s;
    };
    const std::map<QString, QString> facts{
        {u"title"_s, occurrence.title},
        {u"location"_s, occurrence.location.value_or(u"-"_s)},
        {u"link"_s, occurrence.meetingURL ? occurrence.meetingURL->toString() : u"-"_s},
        {u"attendees"_s, yesNo(occurrence.hasAttendees)},
        {u"answer"_s, rawValue(occurrence.participationStatus)},
        {u"recurring"_s, yesNo(occurrence.isRecurring)},
        {u"allDay"_s, yesNo(occurrence.isAllDay)},
        {u"series"_s, occurrence.identity.seriesIdentifier},
    };
    const auto found = facts.find(name);
    return found == facts.end() ? u"(no such fact)"_s : found->second;
}

struct FixtureCase {
    const char* file;
    FetchInterval interval;
    QStringList timings;
    /// "name=value|…" for the occurrence at an index, or for every occurrence at index -1.
    std::vector<std::pair<int, QString>> facts = {};
    QStringList user = {};
    /// An interval right after the occurrences, in which nothing may be found.
    std::optional<FetchInterval> emptyAfter = std::nullopt;
};

TEST(EdsEventMappingFixtures, RealExportsMapToTheirOccurrences)
{
    const QString zoom = u"https://videoconf-colibri.zoom.us/j/93800310242?pwd=K3FBUVJUV2hrTm1OR2RWb0ZabTJkZz09"_s;
    const Date tokyoMidnight = utc(2019, 3, 3, 15);
    const FixtureCase cases[] = {
        // First Tuesdays at 10:00 Los Angeles time, extra dates on 11-05 (moved to 11-06 20:00), 11-10 and 11-30, the
        // first instance moved to 15:00, none on the excluded 12-04, 02-05 and 04-02. The series carries the
        // attendees; the moved instances were written without them.
        {"icaljs_recur_instances_zimbra.ics",
         {utc(2012, 10, 1), utc(2013, 4, 30)},
         {u"2012-10-02T22:00 +30m from 2012-10-02T17:00"_s, u"2012-11-06T18:00 +30m"_s,
          u"2012-11-07T04:00 +30m from 2012-11-05T18:00"_s, u"2012-11-10T18:00 +30m"_s, u"2012-11-30T18:00 +30m"_s,
          u"2013-01-01T18:00 +30m"_s, u"2013-03-05T18:00 +30m"_s},
         {{-1, u"title=Crazy Event Thingy!|recurring=yes|series=external:623c13c0-6c2b-45d6-a12b-c33ad61c4868"_s},
          {0, u"answer=unknown|attendees=no"_s},
          {1, u"answer=accepted|attendees=yes|location=PLACE"_s}},
         {u"calmozilla1@gmail.com"_s}},
        // "LOCATION:" and "DESCRIPTION:" are empty; the only ATTENDEE is an e-mail alarm's recipient.
        {"icaljs_daily_recur_google.ics",
         {utc(2012, 8, 1), utc(2012, 8, 4)},
         {u"2012-08-01T12:00 +60m"_s, u"2012-08-02T12:00 +60m"_s, u"2012-08-03T12:00 +60m"_s},
         {{0, u"title=Every day recurring|location=-|link=-|attendees=no|answer=unknown|"
              u"series=external:tgh9qho17b07pk2n2ji3gluans@google.com"_s}},
         {u"calmozilla1@gmail.com"_s}},
        // A cancelled instance stays, as the same occurrence of the series.
        {"rie_cancelled_occurrence_thunderbird.ics",
         {utc(2020, 1, 27), utc(2020, 2, 3)},
         {u"2020-01-28T21:00 +60m"_s, u"2020-01-29T21:00 +60m cancelled"_s, u"2020-01-30T21:00 +60m"_s}},
        // Weekly in Lisbon across the switch back from daylight saving time; the Zoom link is folded.
        {"rie_google_export_folded_zoom_vanity_url.ics",
         {utc(2020, 10, 12), utc(2020, 11, 3)},
         {u"2020-10-12T10:30 +90m"_s, u"2020-10-19T10:30 +90m"_s, u"2020-10-26T11:30 +90m"_s,
          u"2020-11-02T11:30 +90m"_s},
         {{-1, u"link="_s + zoom}}},
        // 00:30 in Berlin; 03-11 and 03-25 are excluded by UTC instants of that local time.
        {"rie_exdate_utc_vs_tzid_sabredav.ics",
         {utc(2019, 3, 1), utc(2019, 5, 1)},
         {u"2019-03-03T23:30 +30m"_s, u"2019-03-17T23:30 +30m"_s, u"2019-03-31T22:30 +30m"_s,
          u"2019-04-07T22:30 +30m"_s, u"2019-04-14T22:30 +30m"_s, u"2019-04-21T22:30 +30m"_s}},
        // Only "W. Europe Standard Time" is defined: Europe/Berlin must come from the system zone database, or the
        // times would be read in Tokyo and be seven hours early. The UNTIL is floating.
        {"rie_exchange2010_via_evolution.ics",
         {utc(2020, 4, 24), utc(2020, 5, 2)},
         {u"2020-04-26T12:00 +30m"_s, u"2020-04-28T12:00 +30m"_s},
         {{0, u"title=Reoccur"_s}}},
        // One day of the user's zone, end-exclusive: the next day does not contain it.
        {"rie_all_day_value_date.ics",
         {utc(2019, 3, 1), utc(2019, 3, 10)},
         {u"2019-03-03T15:00 +1440m"_s},
         {{0, u"allDay=yes|title=test2"_s}},
         {},
         FetchInterval{tokyoMidnight + 86'400, tokyoMidnight + 2 * 86'400}},
        // Last Fridays at 21:30 Berlin, the one of 12-31 moved to 12-17 and listed before its series; without DTEND
        // the moved instance ends as it starts, like its series.
        {"rie_google_override_before_master.ics",
         {utc(2021, 11, 20), utc(2022, 3, 1)},
         {u"2021-11-26T20:30 +0m"_s, u"2021-12-17T20:30 +0m from 2021-12-31T20:30"_s, u"2022-01-28T20:30 +0m"_s,
          u"2022-02-25T20:30 +0m"_s}},
        // A URL folded with a tab is the join link.
        {"icalendar_url_property_tab_folded.ics",
         {utc(2022, 2, 22), utc(2022, 2, 23)},
         {u"2022-02-22T18:30 +60m"_s},
         {{0, u"link=https://podio.com/xxxxxxyyyyyy/zpodio-testgelande/apps/calendar/items/5|"
              u"title=Termin 4353 und\"so\"|location=online|recurring=no"_s}}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.file);
        const auto calendar = fixture(QString::fromUtf8(row.file));
        if (!calendar) {
            GTEST_SKIP() << "The shared iCalendar fixtures are not here: " ORVANE_SHARED_FIXTURES_DIR;
        }
        ASSERT_TRUE(calendar->parsed());
        const auto occurrences = calendar->expand(row.interval, row.user);
        ASSERT_EQ(timings(occurrences), row.timings);
        for (const auto& occurrence : occurrences) {
            // One series per file, and a moved instance is scheduled where it now starts.
            EXPECT_EQ(occurrence.identity.seriesIdentifier, occurrences.front().identity.seriesIdentifier);
            EXPECT_EQ(occurrence.identity.scheduledStart, occurrence.startDate);
        }
        for (const auto& [index, facts] : row.facts) {
            for (std::size_t i = 0; i < occurrences.size(); ++i) {
                if (index >= 0 && std::size_t(index) != i) {
                    continue;
                }
                for (const QString& expected : facts.split(u'|')) {
                    const QString name = expected.section(u'=', 0, 0);
                    EXPECT_EQ(name + u'=' + fact(occurrences[i], name), expected) << "occurrence #" << i;
                }
            }
        }
        if (row.emptyAfter) {
            EXPECT_THAT(timings(calendar->expand(*row.emptyAfter)), ElementsAre());
        }
    }
}

TEST(EdsEventMappingFixtures, ItipMessageStreamMapsWhatHasATimeAndSkipsTheRest)
{
    const auto stream = fixture(u"libical_itip_incoming_declined.ics"_s);
    if (!stream) {
        GTEST_SKIP() << "The shared iCalendar fixtures are not here: " ORVANE_SHARED_FIXTURES_DIR;
    }
    ASSERT_TRUE(stream->parsed());
    // Fifteen messages, each its own calendar: their UIDs repeat, so they cannot be one store.
    std::vector<std::vector<MeetingOccurrence>> perMessage;
    for (GRef<ICalComponent> message(i_cal_component_get_first_component(stream->root(), I_CAL_VCALENDAR_COMPONENT));
         message; message.reset(i_cal_component_get_next_component(stream->root(), I_CAL_VCALENDAR_COMPONENT))) {
        gchar* text = i_cal_component_as_ical_string(message.get());
        perMessage.push_back(
            Calendar(QByteArray(text)).expand({utc(1996, 1, 1), utc(1998, 12, 31)}, {u"c@example.com"_s}));
        g_free(text);
    }
    ASSERT_EQ(perMessage.size(), 15u);
    const auto only = [&](std::size_t index) {
        EXPECT_EQ(perMessage[index].size(), 1u) << "message #" << index + 1;
        return perMessage[index].empty() ? MeetingOccurrence{} : perMessage[index].front();
    };
    // #1, a request with a malformed DTEND: still a meeting at its start; C has not answered yet (no PARTSTAT).
    EXPECT_EQ(only(0).startDate, utc(1997, 7, 1, 10));
    EXPECT_EQ(only(0).participationStatus, MeetingParticipationStatus::pending);
    EXPECT_TRUE(only(0).hasAttendees);
    // #2 and #3 reschedule and update one meeting: each message on its own maps its own version.
    EXPECT_EQ(only(1).identity.seriesIdentifier, only(2).identity.seriesIdentifier);
    EXPECT_EQ(timing(only(2)), u"1997-07-01T19:00 +30m"_s);
    // #12, a counter-proposal, gives its length as DURATION.
    EXPECT_EQ(timing(only(11)), u"1997-07-01T19:00 +120m"_s);
    // Replies (#5, #6, #8 – #10) and the cancellation (#11) carry no start; #15 is free/busy, not an event.
    for (const std::size_t empty : {4u, 5u, 7u, 8u, 9u, 10u, 14u}) {
        EXPECT_TRUE(perMessage[empty].empty()) << "message #" << empty + 1;
    }
}

// ---- The user's answer and the other attendees -------------------------------------------------------------------

QByteArray attendee(const char* partstat, const char* address = "mailto:ada@example.org")
{
    return "ATTENDEE" + (*partstat ? ";PARTSTAT=" + QByteArray(partstat) : QByteArray()) + ':' + address + '\n';
}

/// The answer is the user's own attendee entry; "has attendees" means someone besides the user.
TEST(EdsEventMapping, ParticipationAndOtherAttendees)
{
    using enum MeetingParticipationStatus;
    const QStringList both{u"ada@example.org"_s, u"ada@work.example"_s};
    const QByteArray bob = attendee("", "mailto:bob@example.org");
    const struct {
        const char* name;
        QByteArray attendees;
        QStringList user;
        MeetingParticipationStatus answer;
        bool others;
    } cases[] = {
        {"accepted", attendee("ACCEPTED"), ada, accepted, false},
        {"declined, scheme and address in capitals", attendee("DECLINED", "MAILTO:Ada@Example.ORG"), ada, declined,
         false},
        {"tentative, mixed-case scheme", attendee("TENTATIVE", "Mailto:ada@example.org"), ada, tentative, false},
        {"needs action", attendee("NEEDS-ACTION"), ada, pending, false},
        {"no PARTSTAT means not answered yet", attendee(""), ada, pending, false},
        {"delegated", attendee("DELEGATED"), ada, delegated, false},
        {"completed", attendee("COMPLETED"), ada, completed, false},
        {"in process", attendee("IN-PROCESS"), ada, inProcess, false},
        {"in process, as libical writes it", attendee("INPROCESS"), ada, inProcess, false},
        {"an answer iCalendar does not define", attendee("X-MAYBE-LATER"), ada, unknown, false},
        {"found by address, not by position", attendee("DECLINED", "mailto:bob@example.org") + attendee("ACCEPTED"),
         ada, accepted, true},
        {"the user first, then someone else", attendee("") + bob, ada, pending, true},
        {"the user's second address", attendee("DECLINED", "mailto:ada@work.example"), both, declined, false},
        {"the first of two entries for the user", attendee("DECLINED") + attendee("ACCEPTED"), ada, declined, false},
        {"attendees, none of them the user", bob, ada, unknown, true},
        {"an address that only contains the user's", attendee("DECLINED", "mailto:grace.ada@example.org"), ada, unknown,
         true},
        {"a room", "ATTENDEE;CUTYPE=ROOM:mailto:room-4@example.org\n", ada, unknown, true},
        {"an organizer alone is not an attendee", "ORGANIZER:mailto:bob@example.org\n", ada, unknown, false},
        {"no attendees", "", ada, unknown, false},
        {"the user's addresses are not known", attendee("DECLINED"), {}, unknown, true},
    };
    for (const auto& row : cases) {
        const auto occurrence = single(row.attendees, row.user);
        ASSERT_TRUE(occurrence) << row.name;
        EXPECT_EQ(occurrence->participationStatus, row.answer) << row.name;
        EXPECT_EQ(occurrence->hasAttendees, row.others) << row.name;
    }
}

TEST(EdsEventMapping, CalendarUserAddressIgnoresSchemeCaseAndSurroundingSpace)
{
    EXPECT_EQ(eds::calendarUserAddress("MAILTO:Ada@EXAMPLE.com"), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress(" Mailto:ada@example.com "), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress("ada@example.com"), u"ada@example.com"_s);
    EXPECT_EQ(eds::calendarUserAddress(nullptr), QString());
}

// ---- Titles, links, flags, identity ------------------------------------------------------------------------------

TEST(EdsEventMapping, TitleLocationJoinLinkAndCancellation)
{
    const struct {
        QByteArray properties;
        QString expected; // title | location | join link | cancelled
    } cases[] = {
        {"", u"Untitled event | - | - | no"_s},
        {"SUMMARY:\n", u"Untitled event | - | - | no"_s},
        {"SUMMARY:   \n", u"Untitled event | - | - | no"_s},
        {"SUMMARY:Caf\xc3\xa9 \\, croissants\n", u"Café , croissants | - | - | no"_s},
        {"LOCATION:Room 4\nSTATUS:CANCELLED\n", u"Untitled event | Room 4 | - | yes"_s},
        {"LOCATION:\nSTATUS:CONFIRMED\n", u"Untitled event | - | - | no"_s},
        {"STATUS:TENTATIVE\n", u"Untitled event | - | - | no"_s},
        // The join link comes from the URL, then the location, then the description, and only from meeting services.
        {"URL:https://teams.microsoft.com/l/meetup-join/19%3ameeting_abc%40thread.v2/0\n",
         u"Untitled event | - | https://teams.microsoft.com/l/meetup-join/19%3Ameeting_abc%40thread.v2/0 | no"_s},
        {"DESCRIPTION:Join: https://acme.zoom.us/j/81234567890?pwd=abc\\nThanks\n",
         u"Untitled event | - | https://acme.zoom.us/j/81234567890?pwd=abc | no"_s},
        {"LOCATION:https://meet.google.com/abc-defg-hij\nDESCRIPTION:https://zoom.us/j/1\n",
         u"Untitled event | https://meet.google.com/abc-defg-hij | https://meet.google.com/abc-defg-hij | no"_s},
        {"DESCRIPTION:Agenda: https://wiki.example.org/agenda\n", u"Untitled event | - | - | no"_s},
    };
    for (const auto& row : cases) {
        const auto occurrence = single(row.properties).value_or(MeetingOccurrence{});
        const QStringList mapped{occurrence.title, fact(occurrence, u"location"_s), fact(occurrence, u"link"_s),
                                 occurrence.isCanceled ? u"yes"_s : u"no"_s};
        EXPECT_EQ(mapped.join(u" | "_s), row.expected) << row.properties.constData();
    }
}

TEST(EdsEventMapping, SingleEventIdentityCarriesTheCalendarAndIsKeyedByItsStart)
{
    const auto occurrence = single("SUMMARY:Planning\n");
    ASSERT_TRUE(occurrence);
    EXPECT_EQ(occurrence->identity.seriesIdentifier, u"external:one@example.org"_s);
    EXPECT_EQ(occurrence->identity.sourceIdentifier, u"local-stub"_s);
    EXPECT_EQ(occurrence->identity.calendarIdentifier, u"cal-fixture"_s);
    EXPECT_EQ(occurrence->identity.calendarFingerprint,
              (CalendarFingerprint{CalendarSourceKind::local, u"On This Computer"_s, u"Fixture"_s}));
    EXPECT_TRUE(occurrence->identity.calendarFingerprintIsUnique);
    EXPECT_EQ(occurrence->calendar.identifier, u"cal-fixture"_s);
    EXPECT_EQ(occurrence->identity.occurrenceStart, utc(2030, 3, 4, 10));
    EXPECT_EQ(occurrence->identity.scheduledStart, utc(2030, 3, 4, 10));
    EXPECT_FALSE(occurrence->isRecurring);
    EXPECT_FALSE(occurrence->isAllDay);
}

// ---- Series, moved instances, zones ------------------------------------------------------------------------------

TEST(EdsEventMapping, MovedInstanceIsKeyedByTheSlotItReplacesAndMayLeaveTheInterval)
{
    const auto calendar =
        calendarOf("BEGIN:VEVENT\nUID:standup@example.org\nSUMMARY:Standup\nDTSTART:20300304T090000Z\n"
                   "DTEND:20300304T091500Z\nRRULE:FREQ=DAILY;COUNT=5\nEXDATE:20300306T090000Z\n"
                   "END:VEVENT\n"
                   "BEGIN:VEVENT\nUID:standup@example.org\nSUMMARY:Standup (later today)\n"
                   "RECURRENCE-ID:20300305T090000Z\nDTSTART:20300305T140000Z\nDTEND:20300305T141500Z\n"
                   "END:VEVENT\n"
                   "BEGIN:VEVENT\nUID:standup@example.org\nRECURRENCE-ID:20300307T090000Z\n"
                   "DTSTART:20300320T090000Z\nDTEND:20300320T091500Z\nEND:VEVENT\n");
    const auto occurrences = calendar.expand({utc(2030, 3, 4), utc(2030, 3, 9)});
    EXPECT_THAT(timings(occurrences),
                ElementsAre(u"2030-03-04T09:00 +15m"_s, u"2030-03-05T14:00 +15m from 2030-03-05T09:00"_s,
                            u"2030-03-08T09:00 +15m"_s));
    ASSERT_EQ(occurrences.size(), 3u);
    EXPECT_EQ(occurrences[1].identity.scheduledStart, utc(2030, 3, 5, 14));
    EXPECT_EQ(occurrences[1].title, u"Standup (later today)"_s);
    for (const auto& occurrence : occurrences) {
        EXPECT_TRUE(occurrence.isRecurring);
        EXPECT_EQ(occurrence.identity.seriesIdentifier, u"external:standup@example.org"_s);
    }
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 20), utc(2030, 3, 21)})),
                ElementsAre(u"2030-03-20T09:00 +15m from 2030-03-07T09:00"_s));
}

TEST(EdsEventMapping, ZonesComeFromTheCalendarOrAreTheUsersWhenFloating)
{
    // Exchange and Outlook name their zones ("India Standard Time") and define them beside the events; the calendar
    // service returns each event without those definitions, so only the resolver knows the zone.
    const auto calendar = calendarOf(
        "BEGIN:VTIMEZONE\nTZID:India Standard Time\nBEGIN:STANDARD\nDTSTART:16010101T000000\nTZOFFSETFROM:+0530\n"
        "TZOFFSETTO:+0530\nEND:STANDARD\nEND:VTIMEZONE\n"
        "BEGIN:VEVENT\nUID:single@example.org\nDTSTART;TZID=India Standard Time:20300304T100000\n"
        "DTEND;TZID=India Standard Time:20300304T110000\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:lasting@example.org\nDTSTART;TZID=India Standard Time:20300304T120000\nDURATION:PT45M\n"
        "END:VEVENT\n"
        "BEGIN:VEVENT\nUID:series@example.org\nDTSTART;TZID=India Standard Time:20300305T090000\n"
        "DTEND;TZID=India Standard Time:20300305T093000\nRRULE:FREQ=DAILY;COUNT=2\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:series@example.org\nRECURRENCE-ID;TZID=India Standard Time:20300306T090000\n"
        "DTSTART;TZID=India Standard Time:20300306T150000\nDTEND;TZID=India Standard Time:20300306T153000\n"
        "END:VEVENT\n"
        "BEGIN:VEVENT\nUID:floating@example.org\nDTSTART:20300307T090000\nDTEND:20300307T100000\nEND:VEVENT\n"
        "BEGIN:VEVENT\nUID:nostart@example.org\nSUMMARY:Someday\nEND:VEVENT\n");
    EXPECT_THAT(timings(calendar.expand({utc(2030, 3, 3), utc(2030, 3, 8)})),
                ElementsAre(u"2030-03-04T04:30 +60m"_s, u"2030-03-04T06:30 +45m"_s, u"2030-03-05T03:30 +30m"_s,
                            u"2030-03-06T09:30 +30m from 2030-03-06T03:30"_s, u"2030-03-07T00:00 +60m"_s));
}

TEST(EdsEventMapping, OccurrencesOverlappingTheIntervalAreIncluded)
{
    // 10:00-11:00 on 03-04, once alone and once as the first instance of a weekly series: both must be cut alike.
    const auto calendar = calendarOf("BEGIN:VEVENT\nUID:single@example.org\nDTSTART:20300304T100000Z\n"
                                     "DTEND:20300304T110000Z\nEND:VEVENT\n"
                                     "BEGIN:VEVENT\nUID:series@example.org\nDTSTART:20300304T100000Z\n"
                                     "DTEND:20300304T110000Z\nRRULE:FREQ=WEEKLY;COUNT=2\nEND:VEVENT\n");
    const struct {
        const char* name;
        FetchInterval interval;
        std::size_t count;
    } cases[] = {
        {"in progress when the interval starts", {utc(2030, 3, 4, 10, 59), utc(2030, 3, 4, 12)}, 2},
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
    static_cast<QStringList*>(data)->append(span(eds::toDate(start, tokyo()), eds::toDate(end, tokyo())));
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
    const auto icalTime = [](Date date) {
        return GRef<ICalTime>(
            i_cal_time_new_from_timet_with_zone(time_t(date.unixTime()), FALSE, i_cal_timezone_get_utc_timezone()));
    };
    for (const char* properties : series) {
        const auto calendar =
            calendarOf("BEGIN:VEVENT\nUID:long@example.org\n" + QByteArray(properties) + "\nEND:VEVENT\n");
        ASSERT_EQ(calendar.events().size(), 1u) << properties;
        for (const auto& interval : intervals) {
            QStringList walked;
            const auto from = icalTime(interval.start);
            const auto to = icalTime(interval.end);
            ASSERT_TRUE(e_cal_recur_generate_instances_sync(calendar.events().front(), from.get(), to.get(),
                                                            collectInstance, &walked, builtinZone, nullptr, tokyo(),
                                                            nullptr, nullptr));
            EXPECT_EQ(timings(calendar.expand(interval)), walked)
                << properties << "\nbetween " << iso(interval.start).toStdString() << " and "
                << iso(interval.end).toStdString();
        }
    }
}

} // namespace
