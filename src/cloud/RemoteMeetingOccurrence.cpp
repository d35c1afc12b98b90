// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteMeetingOccurrence.h"

namespace orvane {

std::size_t hash(const RemoteMeetingOccurrence& value)
{
    return hashFields(value.calendar, value.seriesIdentifier, value.occurrenceStart, value.title, value.startDate,
                      value.endDate, value.isAllDay, value.isCanceled, value.participationStatus, value.hasAttendees,
                      value.location, value.isRecurring, value.meetingURL, value.iCalendarUID);
}

} // namespace orvane
