// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/OccurrenceFetchResult.h"
#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarGroup.h"
#include "domain/MeetingSchedule.h"

#include <QObject>
#include <QSet>
#include <qcoro/qcorotask.h>

namespace orvane {

/// The calendars the user already keeps in the desktop's calendar database.
class CalendarRepository : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// The access Orvane has now; reading it never prompts and never blocks.
    virtual CalendarAuthorizationState authorizationState() const = 0;
    /// Asks for full access (connects to the calendar service) and returns the state afterwards.
    virtual QCoro::Task<CalendarAuthorizationState> requestFullAccess() = 0;
    /// Every calendar, grouped by account. Throws CalendarRepositoryError.
    virtual QCoro::Task<std::vector<CalendarGroup>> calendarGroups() = 0;
    /// The occurrences in `interval` on the calendars whose identifiers are in `calendarIdentifiers`, sorted by
    /// start; a calendar that cannot be opened or read is listed as failed while the others deliver. An empty
    /// selection returns nothing without asking the service. Throws CalendarRepositoryError when the service fails
    /// (no calendar could be read).
    virtual QCoro::Task<OccurrenceFetchResult> occurrences(FetchInterval interval,
                                                           QSet<QString> calendarIdentifiers) = 0;

Q_SIGNALS:
    /// Calendars or events changed (a burst of changes is reported once).
    void changed();
    void authorizationStateChanged(orvane::CalendarAuthorizationState state);
};

} // namespace orvane
