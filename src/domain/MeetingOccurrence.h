// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarDescriptor.h"
#include "domain/MeetingIdentity.h"
#include "domain/MeetingParticipationStatus.h"

#include <QUrl>

#include <optional>

namespace orvane {

/// One occurrence of a calendar event, as the alert logic sees it. Sources build these; nobody changes them.
struct MeetingOccurrence {
    MeetingIdentity identity;
    QString title;
    Date startDate;
    Date endDate;
    bool isAllDay = false;
    /// The source marks the event cancelled.
    bool isCanceled = false;
    /// The current user's answer to the invitation.
    MeetingParticipationStatus participationStatus = MeetingParticipationStatus::unknown;
    /// At least one attendee other than the user.
    bool hasAttendees = false;
    std::optional<QString> location;
    /// An occurrence of a repeating series.
    bool isRecurring = false;
    CalendarDescriptor calendar;
    /// The join link the link detector chose when the source built the occurrence.
    std::optional<QUrl> meetingURL;

    friend bool operator==(const MeetingOccurrence&, const MeetingOccurrence&) = default;
};

std::size_t hash(const MeetingOccurrence& value);

/// The title an occurrence carries for an event its calendar calls `title`: that, or "Untitled event" (the words the
/// desktop calendars use) when it is empty or blank, so that an alert never shows an empty headline.
QString occurrenceTitle(const QString& title);
/// Also writes "isDeclined", which older versions read instead of the participation status.
json::Value toJson(const MeetingOccurrence& value);
/// Reads records of older versions: without "participationStatus" the status is `declined` when "isDeclined" is
/// true and `unknown` otherwise; without "isRecurring" the occurrence is not recurring.
MeetingOccurrence fromJson(const json::Decoder& decoder, json::Tag<MeetingOccurrence>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::MeetingOccurrence);
