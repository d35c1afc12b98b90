// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"
#include "domain/MeetingSchedule.h"

#include <QStringList>

#include <functional>
#include <libecal/libecal.h>
#include <optional>

/// Turning one iCalendar event instance, as Evolution Data Server expands it, into a MeetingOccurrence. Pure
/// functions over libical values: no daemon involved.
namespace orvane::eds {

/// What the mapping needs to know about the calendar that holds the event.
struct CalendarContext {
    CalendarDescriptor calendar;
    std::optional<CalendarFingerprint> fingerprint;
    bool fingerprintIsUnique = false;
    /// The user's own addresses (lower-case, without "mailto:"), to find the user among the attendees.
    QStringList userAddresses;
    /// The zone of floating times and all-day dates: the user's own.
    ICalTimezone* defaultZone = nullptr;
    /// Finds the zone of a TZID parameter; null when unknown (the time is then read in the default zone).
    std::function<ICalTimezone*(const char* tzid)> resolveZone;
};

/// The occurrence of one instance of `event` from `start` to `end`, or nothing when it lacks a start. The
/// occurrence start is `occurrenceStart` when given (an instance generated from a series), else the event's
/// RECURRENCE-ID (a moved instance), else its start.
std::optional<MeetingOccurrence> mapInstance(ICalComponent* event, ICalTime* start, ICalTime* end,
                                             std::optional<Date> occurrenceStart, const CalendarContext& context);

/// The occurrences of `events` (series masters, their moved or cancelled instances, and single events, in any
/// order) that overlap `interval`: series are expanded with their exceptions (EXDATE) and extra dates (RDATE), and
/// an instance that was moved or changed is replaced by its own component. Throws std::runtime_error when libical
/// fails to expand a series.
std::vector<MeetingOccurrence> expandEvents(const std::vector<ICalComponent*>& events, FetchInterval interval,
                                            const CalendarContext& context);

/// The instant of an iCalendar time: UTC as written, in its own zone when it has one, else in `fallback`.
Date toDate(ICalTime* time, ICalTimezone* fallback);

/// The user's own answer: the PARTSTAT of the first attendee whose address is one of `userAddresses`.
MeetingParticipationStatus participationStatus(ICalComponent* event, const QStringList& userAddresses);

/// The address of a calendar user value ("mailto:Ada@Example.com" gives "ada@example.com").
QString calendarUserAddress(const char* value);

} // namespace orvane::eds
