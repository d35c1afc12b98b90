// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"

#include <QUrl>

/// Calendars and series identifiers shaped like real ones, for the benchmarks' workloads.
namespace benchmarks {

inline orvane::CalendarDescriptor makeCalendar(int index)
{
    using namespace Qt::StringLiterals;
    orvane::CalendarDescriptor calendar;
    calendar.identifier = u"8F1C2A7E-%1-4B0D-9C61-5E2F3A4B%2"_s.arg(index % 4).arg(index, 4, 10, QLatin1Char('0'));
    calendar.title = u"Calendar %1"_s.arg(index);
    calendar.sourceIdentifier = u"account-%1@example.com"_s.arg(index % 4);
    calendar.sourceTitle = calendar.sourceIdentifier;
    calendar.sourceKind = index % 3 == 0 ? orvane::CalendarSourceKind::exchange : orvane::CalendarSourceKind::google;
    return calendar;
}

inline QString makeSeriesIdentifier(int index)
{
    using namespace Qt::StringLiterals;
    // Most events carry the server's iCalendar UID; a few local ones only an item identifier.
    if (index % 8 == 0) {
        return u"local:item-%1"_s.arg(index);
    }
    return u"external:%1a7c3f0e9b2d4c6e8f0a1b3c5d7e9f@google.com"_s.arg(index, 6, 16, QLatin1Char('0'));
}

/// A week's meeting of `series` in `calendar` starting at `start`; `chance(percent)` decides its varying traits.
template <class Chance>
orvane::MeetingOccurrence makeOccurrence(const orvane::CalendarDescriptor& calendar, int series, double start,
                                         Chance&& chance)
{
    using namespace Qt::StringLiterals;
    using namespace orvane;
    MeetingOccurrence occurrence;
    occurrence.identity = {.sourceIdentifier = calendar.sourceIdentifier,
                           .calendarIdentifier = calendar.identifier,
                           .seriesIdentifier = makeSeriesIdentifier(series),
                           .calendarFingerprint =
                               CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title},
                           .calendarFingerprintIsUnique = true,
                           .occurrenceStart = Date{start},
                           .scheduledStart = Date{start}};
    occurrence.title = u"Weekly sync %1"_s.arg(series);
    occurrence.startDate = Date{start};
    occurrence.endDate = Date{start + (chance(70) ? 1800 : 3600)};
    occurrence.isAllDay = chance(3);
    occurrence.isCanceled = chance(1);
    occurrence.participationStatus =
        chance(6) ? MeetingParticipationStatus::declined : MeetingParticipationStatus::accepted;
    occurrence.hasAttendees = chance(65);
    if (chance(45)) {
        occurrence.meetingURL = QUrl(u"https://acme.zoom.us/j/8123456789"_s);
    }
    occurrence.calendar = calendar;
    return occurrence;
}

} // namespace benchmarks
