// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionRecord.h"
#include "domain/MeetingIdentity.h"

#include <QUuid>

/// Small builders for the values most tests need.
namespace fixtures {

inline orvane::MeetingIdentity identity(const QString& series, double start = 700'000'000,
                                        const QString& calendar = QStringLiteral("cal-work"))
{
    return {.sourceIdentifier = QStringLiteral("src-1"),
            .calendarIdentifier = calendar,
            .seriesIdentifier = series,
            .calendarFingerprint = orvane::CalendarFingerprint{orvane::CalendarSourceKind::calDAV,
                                                               QStringLiteral("Nextcloud"), QStringLiteral("Work")},
            .calendarFingerprintIsUnique = true,
            .occurrenceStart = orvane::Date{start},
            .scheduledStart = orvane::Date{start}};
}

inline orvane::ExclusionRecord exclusion(const orvane::MeetingIdentity& identity,
                                         orvane::ExclusionScope scope = orvane::ExclusionScope::series)
{
    return {.id = QUuid::createUuid(),
            .identity = identity,
            .scope = scope,
            .createdAt = orvane::Date{699'000'000},
            .eventTitle = QStringLiteral("Planning"),
            .calendarTitle = QStringLiteral("Work")};
}

} // namespace fixtures

#include "domain/MeetingOccurrence.h"

namespace fixtures {

/// A timed meeting of `minutes` starting at `start`, with another attendee, in the work calendar.
inline orvane::MeetingOccurrence meeting(const QString& series, double start, double minutes = 30,
                                         const QString& calendar = QStringLiteral("cal-work"))
{
    return {.identity = identity(series, start, calendar),
            .title = series,
            .startDate = orvane::Date{start},
            .endDate = orvane::Date{start + minutes * 60},
            .isAllDay = false,
            .isCanceled = false,
            .participationStatus = orvane::MeetingParticipationStatus::accepted,
            .hasAttendees = true,
            .location = std::nullopt,
            .isRecurring = false,
            .calendar = {.identifier = calendar,
                         .title = QStringLiteral("Work"),
                         .sourceIdentifier = QStringLiteral("src-1"),
                         .sourceTitle = QStringLiteral("Nextcloud"),
                         .sourceKind = orvane::CalendarSourceKind::calDAV,
                         .colorHex = QStringLiteral("#3366CC"),
                         .isSubscribed = false,
                         .allowsContentModifications = true},
            .meetingURL = std::nullopt};
}

} // namespace fixtures
