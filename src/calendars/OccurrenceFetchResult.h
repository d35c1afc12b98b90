// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"

#include <QString>

#include <vector>

namespace orvane {

/// What one fetch delivered: the occurrences of every calendar that could be read, and the calendars that could not.
///
/// One calendar that cannot be opened or read (a leftover calendar whose backend is gone, a calendar the service no
/// longer shares) must not hide the meetings of the others, so it is reported beside them instead of failing the
/// fetch.
struct OccurrenceFetchResult {
    /// A calendar that was asked for but could not be read this time.
    struct FailedCalendar {
        QString identifier;
        QString title;
        /// What went wrong, for the user.
        QString message;
        friend bool operator==(const FailedCalendar&, const FailedCalendar&) = default;
    };

    std::vector<MeetingOccurrence> occurrences;
    std::vector<FailedCalendar> failedCalendars;

    friend bool operator==(const OccurrenceFetchResult&, const OccurrenceFetchResult&) = default;
};

} // namespace orvane
