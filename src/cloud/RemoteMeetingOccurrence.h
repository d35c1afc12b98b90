// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarDescriptor.h"
#include "domain/Date.h"
#include "domain/MeetingParticipationStatus.h"

#include <QUrl>

namespace orvane {

/// One occurrence of an event read from a provider, before the composite repository turns it into a
/// MeetingOccurrence.
struct RemoteMeetingOccurrence {
    RemoteCalendarDescriptor calendar;
    /// "external:" followed by the remote identity string of kind "series".
    QString seriesIdentifier;
    /// The start that names this occurrence within its series; a moved occurrence keeps its original start here.
    Date occurrenceStart;
    QString title;
    Date startDate;
    Date endDate;
    bool isAllDay = false;
    bool isCanceled = false;
    MeetingParticipationStatus participationStatus = MeetingParticipationStatus::unknown;
    /// At least one attendee other than the user.
    bool hasAttendees = false;
    std::optional<QString> location;
    bool isRecurring = false;
    std::optional<QUrl> meetingURL;
    /// The event's iCalendar UID when the provider shares one for the whole series, so that the same meeting seen
    /// through the desktop's calendars (which carry the UID) alerts once.
    std::optional<QString> iCalendarUID;

    friend bool operator==(const RemoteMeetingOccurrence&, const RemoteMeetingOccurrence&) = default;
};

std::size_t hash(const RemoteMeetingOccurrence& value);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::RemoteMeetingOccurrence);
